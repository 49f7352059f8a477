#include "tests/sim/kernel.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "platform/objects.h"

namespace sim {
namespace {

constexpr platform::FileTime kTicksPerMillisecond = 10000;
using Real = std::chrono::steady_clock;

thread_local bool isSimulated = false;

}  // namespace

std::uint32_t currentThreadNumber() {
  static std::atomic<std::uint32_t> next{1};
  thread_local const std::uint32_t number = next.fetch_add(1) * 4;
  return number;
}

/// Takes a simulated thread off the busy ones while it waits, and notes when it has looked at the last change.
class Kernel::WaitScope {
 public:
  explicit WaitScope(Kernel& kernel) : kernel_(kernel), seen_(kernel.generation_) {
    if (isSimulated) {
      --kernel_.busy_;
      ++kernel_.waiting_;
      kernel_.changed_.notify_all();
    }
  }
  ~WaitScope() {
    settle();
    if (isSimulated) {
      --kernel_.waiting_;
      ++kernel_.busy_;
    }
  }
  WaitScope(const WaitScope&) = delete;
  WaitScope& operator=(const WaitScope&) = delete;

  void settle() {
    if (isSimulated && seen_ != kernel_.generation_) {
      --kernel_.unsettled_;
      kernel_.changed_.notify_all();
    }
    seen_ = kernel_.generation_;
  }

 private:
  Kernel& kernel_;
  std::uint64_t seen_;
};

platform::NativeHandle Kernel::add(std::shared_ptr<Object> object, platform::NativeHandle at) {
  const auto handle = at != nullptr ? at : std::bit_cast<platform::NativeHandle>(nextHandle_);
  nextHandle_ += at != nullptr ? 0 : 4;
  handles_[handle] = Entry{std::move(object)};
  return handle;
}

std::shared_ptr<Object> Kernel::find(platform::NativeHandle handle) const {
  const auto found = handles_.find(handle);
  return found == handles_.end() ? nullptr : found->second.object;
}

void Kernel::setInherit(platform::NativeHandle handle, bool inherit) { handles_.at(handle).inherit = inherit; }

std::vector<platform::NativeHandle> Kernel::inheritable() const {
  std::vector<platform::NativeHandle> result;
  for (const auto& [handle, entry] : handles_) {
    if (entry.inherit) {
      result.push_back(handle);
    }
  }
  return result;
}

void Kernel::misuse(std::string text) { misuse_.push_back(std::move(text)); }

void Kernel::recordMisuse(platform::NativeHandle handle, const char* operation) {
  const auto value = reinterpret_cast<std::uintptr_t>(handle);
  const auto object = find(handle);
  std::ostringstream text;
  text << operation << ": handle 0x" << std::hex << value << " is ";
  if (object != nullptr) {
    text << "of the kind " << object->kind();
  } else {
    text << (value >= kFirstHandle && value < nextHandle_ ? "closed" : "foreign");
  }
  misuse_.push_back(text.str());
}

std::size_t Kernel::openHandles() const {
  const std::lock_guard lock(mutex);
  return handles_.size();
}

std::string Kernel::openHandlesText() const {
  const std::lock_guard lock(mutex);
  std::map<std::string, int> kinds;
  for (const auto& [handle, entry] : handles_) {
    ++kinds[entry.object->kind()];
  }
  std::string text;
  for (const auto& [kind, count] : kinds) {
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + kind;
  }
  return text;
}

std::vector<std::string> Kernel::misuseTexts() const {
  const std::lock_guard lock(mutex);
  return misuse_;
}

platform::FileTime Kernel::now() const {
  const std::lock_guard lock(mutex);
  return now_;
}

void Kernel::setNow(platform::FileTime time) {
  const std::lock_guard lock(mutex);
  now_ = time;
  wake();
}

void Kernel::advance(std::uint64_t milliseconds) {
  const std::lock_guard lock(mutex);
  now_ += milliseconds * kTicksPerMillisecond;
  wake();
}

void Kernel::jumpTo(platform::FileTime time) {
  now_ = std::max(now_, time);
  wake();
}

void Kernel::wake() {
  ++generation_;
  unsettled_ = waiting_;
  changed_.notify_all();
}

bool Kernel::waitUntil(Guard& guard, std::uint32_t milliseconds, const std::string& what,
                       const std::function<bool()>& done) {
  if (done() || milliseconds == 0) {
    return done();
  }
  WaitScope scope(*this);
  const bool infinite = milliseconds == platform::kInfinite;
  const auto start = Real::now();
  const platform::FileTime deadline = now_ + milliseconds * kTicksPerMillisecond;
  const auto entry = infinite ? deadlines_.end() : deadlines_.insert(deadline);
  auto quietSince = start;
  std::uint64_t quietGeneration = generation_;
  while (!done() && (infinite || now_ < deadline)) {
    scope.settle();
    changed_.wait_for(guard, infinite ? hangLimit : grace);
    const auto now = Real::now();
    if (now - start >= hangLimit && infinite && !done()) {
      std::fprintf(stderr, "sim: a wait without limit has not ended: %s\n", what.c_str());
      std::abort();
    }
    if ((!isQuiet() && now - start < hangLimit) || quietGeneration != generation_) {
      quietSince = now;
      quietGeneration = generation_;
    } else if (!infinite && now - quietSince >= grace && deadline <= *deadlines_.begin()) {
      jumpTo(deadline);
    }
  }
  if (!infinite) {
    deadlines_.erase(entry);
    changed_.notify_all();
  }
  return done();
}

void Kernel::idle(Guard& guard, const std::function<bool()>& done) {
  WaitScope scope(*this);
  while (!done()) {
    scope.settle();
    changed_.wait(guard);
  }
}

void Kernel::sleep(std::uint32_t milliseconds) {
  Guard guard(mutex);
  const platform::FileTime deadline = now_ + milliseconds * kTicksPerMillisecond;
  {
    WaitScope scope(*this);
    changed_.wait_for(guard, grace, [&] {
      scope.settle();
      return isQuiet() || now_ >= deadline;
    });
  }
  jumpTo(deadline);
  guard.unlock();
  std::this_thread::yield();
}

void Kernel::startThread(std::function<void()> body) {
  ++busy_;
  threads_.emplace_back([this, body = std::move(body)] {
    isSimulated = true;
    body();
    const std::lock_guard lock(mutex);
    --busy_;
    wake();
  });
}

void Kernel::joinThreads() {
  while (true) {
    std::vector<std::thread> threads;
    {
      const std::lock_guard lock(mutex);
      threads.swap(threads_);
    }
    if (threads.empty()) {
      return;
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  }
}

}  // namespace sim
