#include "core/log/log_queue.h"

#include <utility>

namespace CORE {

/// \return whether the writer sleeps. The caller wakes it after it has unlocked: a writer that woke to a locked mutex
///         would go to sleep again at once.
bool LogQueue::append(const LogRecord& record) {
  records_.add(record);
  ++queued_;
  return std::exchange(writerSleeps_, false);
}

LogQueue::Push LogQueue::push(const LogRecord& record) {
  MutexLock lock(mutex_);
  if (queued_ - written_ >= threshold_) {
    return std::exchange(overflowed_, true) ? Push::kDropped : Push::kFirstDropped;
  }
  const bool wakes = append(record);
  lock.unlock();
  if (wakes) {
    arrived_.notify_one();
  }
  return Push::kQueued;
}

void LogQueue::pushNotice(const LogRecord& record) {
  MutexLock lock(mutex_);
  const bool wakes = append(record);
  lock.unlock();
  if (wakes) {
    arrived_.notify_one();
  }
}

LogQueue::Wait LogQueue::waitForRecords(std::chrono::milliseconds timeout) {
  MutexLock lock(mutex_);
  writerSleeps_ = records_.empty() && !closed_;
  const bool inTime =
      arrived_.wait_for(lock.native(), timeout, [this]() REQUIRES(mutex_) { return closed_ || !records_.empty(); });
  writerSleeps_ = false;
  if (!inTime) {
    return Wait::kNothing;
  }
  return records_.empty() ? Wait::kClosed : Wait::kRecords;
}

void LogQueue::take(RecordBuffer& records) {
  records.clear();  // outside the lock: it may free much memory
  const MutexLock lock(mutex_);
  std::swap(records, records_);
}

void LogQueue::markWritten(std::size_t count) {
  const MutexLock lock(mutex_);
  written_ += count;
  overflowed_ = overflowed_ && written_ != queued_;
  if (waitingForWriter_ > 0) {
    progressed_.notify_all();
  }
}

bool LogQueue::waitUntilWritten(std::chrono::milliseconds withoutProgress) {
  MutexLock lock(mutex_);
  const std::uint64_t target = queued_;
  bool progress = true;
  ++waitingForWriter_;
  while (progress && written_ < target) {
    const std::uint64_t before = written_;
    progress = progressed_.wait_for(lock.native(), withoutProgress,
                                    [this, before]() REQUIRES(mutex_) { return written_ != before; });
  }
  --waitingForWriter_;
  return progress;
}

void LogQueue::close() {
  const MutexLock lock(mutex_);
  closed_ = true;
  arrived_.notify_all();
}

}  // namespace CORE
