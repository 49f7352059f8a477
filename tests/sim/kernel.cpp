#include "tests/sim/kernel.h"

#include <bit>
#include <cstdio>
#include <cstdlib>

namespace sim {
namespace {

using Real = std::chrono::steady_clock;

thread_local bool isSimulated = false;

}  // namespace

NativeHandle Kernel::add(std::shared_ptr<Object> object, NativeHandle at) {
  const auto handle = at != nullptr ? at : std::bit_cast<NativeHandle>(nextHandle_);
  nextHandle_ += 4;
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

std::string Kernel::openHandlesText() const {
  const Guard guard(mutex);
  std::map<std::string, int> kinds;
  for (const auto& [handle, object] : handles_) {
    kinds[object->kind()] += object->dependent ? 0 : 1;
  }
  std::string text;
  for (const auto& [kind, count] : kinds) {
    text += count == 0 ? "" : (text.empty() ? "" : ", ") + std::to_string(count) + " " + kind;
  }
  for (const std::string& breach : misuse_) {
    text += "; misuse: " + breach;
  }
  return text;
}

void Kernel::jumpTo(FileTime time) {
  now_ = std::max(now_, time);
  wake();
}

void Kernel::wake() {
  ++generation_;
  busy_ += waiting_;
  waiting_ = 0;
  changed_.notify_all();
}

/// Rests until something may have changed. A simulated thread is not busy meanwhile, and is busy again from the change
/// on.
void Kernel::rest(Guard& guard) {
  const auto seen = generation_;
  busy_ -= isSimulated ? 1 : 0;
  waiting_ += isSimulated ? 1 : 0;
  if (busy_ == 0) {
    quiet_.notify_all();
  }
  changed_.wait_for(guard, kGrace);
  if (isSimulated && seen == generation_) {  // otherwise wake() has counted it as busy
    ++busy_;
    --waiting_;
  }
}

bool Kernel::waitUntil(Guard& guard, std::uint32_t milliseconds, const std::string& what,
                       const std::function<bool()>& done) {
  const bool infinite = milliseconds == kInfinite;
  const FileTime deadline = infinite ? ~FileTime{0} : now_ + milliseconds * kFileTimePerMillisecond;
  const auto entry = deadlines_.insert(deadline);
  const auto start = Real::now();
  auto quietSince = start;
  std::uint64_t quietGeneration = generation_;
  while (!done() && now_ < deadline) {
    rest(guard);
    const auto now = Real::now();
    const bool hangs = now - start >= kHangLimit;
    if (hangs && infinite && !done()) {
      std::fprintf(stderr, "sim: a wait without limit has not ended: %s\n", what.c_str());
      std::abort();
    }
    if ((busy_ != (isSimulated ? 1 : 0) && !hangs) || quietGeneration != generation_) {
      quietSince = now;
      quietGeneration = generation_;
    } else if (!infinite && now - quietSince >= kGrace && deadline <= *deadlines_.begin()) {
      jumpTo(deadline);
    }
  }
  deadlines_.erase(entry);
  return done();
}

void Kernel::idle(Guard& guard, const std::function<bool()>& done) {
  while (!done()) {
    rest(guard);
  }
}

void Kernel::sleep(std::uint32_t milliseconds) {
  Guard guard(mutex);
  const FileTime deadline = now_ + milliseconds * kFileTimePerMillisecond;
  busy_ -= isSimulated ? 1 : 0;
  quiet_.wait_for(guard, kGrace, [&] { return busy_ == 0 || now_ >= deadline; });
  busy_ += isSimulated ? 1 : 0;
  jumpTo(deadline);
  guard.unlock();
  std::this_thread::yield();
}

void Kernel::startThread(std::function<void()> body) {
  ++busy_;
  threads_.emplace_back([this, body = std::move(body)] {
    isSimulated = true;
    body();
    const Guard guard(mutex);
    --busy_;
    wake();
    quiet_.notify_all();
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
