#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "core/log/record_buffer.h"

namespace CORE {

/// The records that wait for the writer, in order of arrival. Any thread.
///
/// Writer and callers meet once for all records that wait, and wake each other only from real sleep: both would cost a
/// log call more than its record does.
class LogQueue {
 public:
  enum class Push {
    kQueued,
    kDropped,
    kFirstDropped,  ///< the first record that this overflow lost
  };

  /// \param threshold  number of waiting records from which on further ones are dropped.
  explicit LogQueue(std::size_t threshold) : threshold_(threshold) {}

  /// An overflow lasts until the writer has caught up.
  Push push(const LogRecord& record);
  /// Queues a record of the logger's own beyond the threshold.
  void pushNotice(const LogRecord& record);

  enum class Wait { kRecords, kNothing, kClosed };
  /// Waits for records, that long at most; kClosed when the queue is closed and empty.
  Wait waitForRecords(std::chrono::milliseconds timeout);
  /// Puts all that wait in the place of `records`, whose memory serves for what comes next. They count as waiting until
  /// they are written.
  void take(RecordBuffer& records);
  /// Tells that this many more of the records taken are in their files (or lost for good).
  void markWritten(std::size_t count);
  /// Waits until every record queued before the call is written; false when none of them was for that long a time.
  bool waitUntilWritten(std::chrono::milliseconds withoutProgress);
  /// Ends the waiting for more records.
  void close();

 private:
  void append(const LogRecord& record, std::unique_lock<std::mutex>& lock);

  const std::size_t threshold_;
  std::mutex mutex_;  ///< guards everything below
  std::condition_variable arrived_;
  std::condition_variable progressed_;
  RecordBuffer records_;
  std::uint64_t queued_ = 0;
  std::uint64_t written_ = 0;
  bool overflown_ = false;
  bool closed_ = false;
  bool writerSleeps_ = false;
  int flushing_ = 0;  ///< threads in waitUntilWritten
};

}  // namespace CORE
