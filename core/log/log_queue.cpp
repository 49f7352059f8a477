#include "core/log/log_queue.h"

#include <utility>

namespace CORE {

void LogQueue::append(const LogRecord& record, std::unique_lock<std::mutex>& lock) {
  records_.add(record);
  ++queued_;
  const bool wakes = std::exchange(writerSleeps_, false);
  lock.unlock();
  if (wakes) {
    arrived_.notify_one();
  }
}

LogQueue::Push LogQueue::push(const LogRecord& record) {
  std::unique_lock lock(mutex_);
  if (queued_ - written_ >= threshold_) {
    return std::exchange(overflown_, true) ? Push::kDropped : Push::kFirstDropped;
  }
  append(record, lock);
  return Push::kQueued;
}

void LogQueue::pushNotice(const LogRecord& record) {
  std::unique_lock lock(mutex_);
  append(record, lock);
}

LogQueue::Wait LogQueue::waitForRecords(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  writerSleeps_ = records_.empty() && !closed_;
  const bool woken = arrived_.wait_for(lock, timeout, [this] { return closed_ || !records_.empty(); });
  writerSleeps_ = false;
  if (!woken) {
    return Wait::kNothing;
  }
  return records_.empty() ? Wait::kClosed : Wait::kRecords;
}

void LogQueue::take(RecordBuffer& records) {
  records.clear();
  const std::lock_guard lock(mutex_);
  std::swap(records, records_);
}

void LogQueue::markWritten(std::size_t count) {
  const std::lock_guard lock(mutex_);
  written_ += count;
  overflown_ = overflown_ && written_ != queued_;
  if (flushing_ > 0) {
    progressed_.notify_all();
  }
}

bool LogQueue::waitUntilWritten(std::chrono::milliseconds withoutProgress) {
  std::unique_lock lock(mutex_);
  const std::uint64_t target = queued_;
  bool progress = true;
  ++flushing_;
  while (progress && written_ < target) {
    const std::uint64_t seen = written_;
    progress = progressed_.wait_for(lock, withoutProgress, [&] { return written_ != seen; });
  }
  --flushing_;
  return progress;
}

void LogQueue::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  arrived_.notify_all();
}

}  // namespace CORE
