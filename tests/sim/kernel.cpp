#include "tests/sim/kernel.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>

namespace sim {
namespace {

using Real = std::chrono::steady_clock;

thread_local bool isSimulated = false;

}  // namespace

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

NativeHandle Kernel::add(std::shared_ptr<Object> object, NativeHandle at) {
  const auto handle = at != nullptr ? at : std::bit_cast<NativeHandle>(nextHandle_);
  nextHandle_ += at != nullptr ? 0 : 4;
  handles_[handle] = std::move(object);
  return handle;
}

std::shared_ptr<Object> Kernel::find(NativeHandle handle) const {
  const auto found = handles_.find(handle);
  return found == handles_.end() ? nullptr : found->second;
}

void Kernel::recordMisuse(NativeHandle handle, const char* operation) {
  const auto object = find(handle);
  misuse(std::string(operation) + ": handle of the kind " + (object != nullptr ? object->kind() : "closed or foreign"));
}

std::size_t Kernel::openHandles() const {
  const std::lock_guard lock(mutex);
  return static_cast<std::size_t>(
      std::count_if(handles_.begin(), handles_.end(), [](const auto& entry) { return !entry.second->dependent; }));
}

std::string Kernel::openHandlesText() const {
  const std::lock_guard lock(mutex);
  std::map<std::string, int> kinds;
  for (const auto& [handle, object] : handles_) {
    if (!object->dependent) {
      ++kinds[object->kind()];
    }
  }
  std::string text;
  for (const auto& [kind, count] : kinds) {
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + kind;
  }
  return text;
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
    changed_.wait_for(guard, infinite ? kHangLimit : kGrace);
    const auto now = Real::now();
    if (now - start >= kHangLimit && infinite && !done()) {
      std::fprintf(stderr, "sim: a wait without limit has not ended: %s\n", what.c_str());
      std::abort();
    }
    if ((!isQuiet() && now - start < kHangLimit) || quietGeneration != generation_) {
      quietSince = now;
      quietGeneration = generation_;
    } else if (!infinite && now - quietSince >= kGrace && deadline <= *deadlines_.begin()) {
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
    changed_.wait_for(guard, kGrace, [&] {
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
  Guard guard(mutex);
  while (!threads_.empty()) {
    std::thread thread = std::move(threads_.back());
    threads_.pop_back();
    guard.unlock();
    thread.join();
    guard.lock();
  }
}

}  // namespace sim
