#include "core/log_queue.h"

#include <algorithm>
#include <iterator>

namespace CORE {

void LogQueue::append(LogRecord record) {
  records_.push_back(std::move(record));
  ++queued_;
}

LogQueue::Push LogQueue::push(LogRecord record) {
  {
    const std::lock_guard lock(mutex_);
    if (records_.size() >= threshold_) {
      const bool first = !overflown_;
      overflown_ = true;
      return first ? Push::kFirstDropped : Push::kDropped;
    }
    append(std::move(record));
  }
  arrived_.notify_one();
  return Push::kQueued;
}

void LogQueue::pushNotice(LogRecord record) {
  {
    const std::lock_guard lock(mutex_);
    append(std::move(record));
  }
  arrived_.notify_one();
}

LogQueue::Wait LogQueue::waitForRecords(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  if (!arrived_.wait_for(lock, patience, [this] { return closed_ || !records_.empty(); })) {
    return Wait::kNothing;
  }
  return records_.empty() ? Wait::kClosed : Wait::kRecords;
}

std::vector<LogRecord> LogQueue::take(std::size_t most) {
  const std::lock_guard lock(mutex_);
  const auto end = records_.begin() + static_cast<std::ptrdiff_t>(std::min(most, records_.size()));
  std::vector<LogRecord> out(std::make_move_iterator(records_.begin()), std::make_move_iterator(end));
  records_.erase(records_.begin(), end);
  if (records_.empty()) {
    overflown_ = false;
  }
  return out;
}

void LogQueue::markWritten(std::size_t count) {
  {
    const std::lock_guard lock(mutex_);
    written_ += count;
  }
  progressed_.notify_all();
}

bool LogQueue::waitUntilWritten(std::chrono::milliseconds withoutProgress) {
  std::unique_lock lock(mutex_);
  const std::uint64_t target = queued_;
  while (written_ < target) {
    const std::uint64_t seen = written_;
    if (!progressed_.wait_for(lock, withoutProgress, [&] { return written_ != seen; })) {
      return false;
    }
  }
  return true;
}

void LogQueue::close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  arrived_.notify_all();
}

}  // namespace CORE
