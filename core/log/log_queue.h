#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>

#include "core/base/mutex.h"
#include "core/log/record_buffer.h"

namespace CORE {

/// The records that wait for the writer, in order of arrival. Any thread.
///
/// The writer takes all waiting records at once, and each side wakes the other only when it really sleeps: a lock or a
/// wake-up for each record would cost a log call more than the record itself does.
class LogQueue {
 public:
  enum class Push {
    kQueued,
    kDropped,
    kFirstDropped,  ///< the first record that this overflow lost
  };

  /// \param threshold  number of waiting records from which on further ones are dropped.
  explicit LogQueue(std::size_t threshold) : threshold_(threshold) {}

  /// Queues a record, or drops it. An overflow lasts until the writer has written everything.
  Push push(const LogRecord& record) EXCLUDES(mutex_);
  /// Queues a record of the logger's own, whatever the threshold.
  void pushNotice(const LogRecord& record) EXCLUDES(mutex_);

  enum class Wait {
    kRecords,
    kNothing,  ///< the time is over
    kClosed,   ///< the queue is closed and empty
  };
  /// Waits for records.
  Wait waitForRecords(std::chrono::milliseconds timeout) EXCLUDES(mutex_);
  /// Replaces the content of `records` by everything that waits; the memory of `records` serves the queue next. The
  /// records count as waiting until markWritten().
  void take(RecordBuffer& records) EXCLUDES(mutex_);
  /// Counts further records of those taken as written, or as lost for good.
  void markWritten(std::size_t count) EXCLUDES(mutex_);
  /// Waits until every record queued before the call is written.
  /// \return false when the writer wrote none of them for that long a time.
  bool waitUntilWritten(std::chrono::milliseconds withoutProgress) EXCLUDES(mutex_);
  /// Makes waitForRecords() return kClosed once the queue is empty.
  void close() EXCLUDES(mutex_);

 private:
  bool append(const LogRecord& record) REQUIRES(mutex_);

  const std::size_t threshold_;
  Mutex mutex_;
  std::condition_variable arrived_;
  std::condition_variable progressed_;
  RecordBuffer records_ GUARDED_BY(mutex_);
  std::uint64_t queued_ GUARDED_BY(mutex_) = 0;
  std::uint64_t written_ GUARDED_BY(mutex_) = 0;
  bool overflowed_ GUARDED_BY(mutex_) = false;
  bool closed_ GUARDED_BY(mutex_) = false;
  bool writerSleeps_ GUARDED_BY(mutex_) = false;
  int waitingForWriter_ GUARDED_BY(mutex_) = 0;  ///< threads in waitUntilWritten
};

}  // namespace CORE
