#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "core/log_line.h"

namespace CORE {

/// The records that wait for the writer, in order of arrival. Any thread.
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
  Push push(LogRecord record);
  /// Queues a record of the logger's own beyond the threshold.
  void pushNotice(LogRecord record);

  enum class Wait { kRecords, kNothing, kClosed };
  /// Waits for records, that long at most; kClosed when the queue is closed and empty.
  Wait waitForRecords(std::chrono::milliseconds patience);
  /// Takes the oldest records, none when none wait.
  std::vector<LogRecord> take(std::size_t most);
  /// Tells that this many more of the records taken are in their files (or lost for good).
  void markWritten(std::size_t count);
  /// Waits until every record queued before the call is written; false when none of them was for that long a time.
  bool waitUntilWritten(std::chrono::milliseconds withoutProgress);
  /// Ends the waiting for more records.
  void close();

 private:
  void append(LogRecord record);

  const std::size_t threshold_;
  std::mutex mutex_;  ///< guards everything below
  std::condition_variable arrived_;
  std::condition_variable progressed_;
  std::deque<LogRecord> records_;
  std::uint64_t queued_ = 0;
  std::uint64_t written_ = 0;
  bool overflown_ = false;
  bool closed_ = false;
};

}  // namespace CORE
