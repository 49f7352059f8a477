#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/base/mutex.h"
#include "core/log/log_line.h"
#include "core/log/log_queue.h"
#include "core/log/log_settings.h"
#include "core/log/log_writer.h"

namespace CORE {

/// The log between a start and a stop of the logger: the queue of records, the files, and who writes them. Without
/// setCallerWrites() a thread of the logger's writes, in run(). Any thread, unless said otherwise.
class LogSession {
 public:
  /// \param component  name of the process in its lines.
  LogSession(const LogSettings& settings, std::wstring component);

  /// Returns the lowest level at which records are made; a number above every level when none are made.
  std::uint64_t admittedFrom() const { return admittedFrom_; }

  /// Queues a record, or drops it when too many wait. Without a writer thread the record is in its file on return.
  void submit(const LogRecord& record);
  /// Writes records until close(), then those that are left. The body of the writer thread.
  void run() noexcept;
  /// Makes submit() write, because there is no writer thread. The starting thread, before the first record.
  void setCallerWrites() { callerWrites_ = true; }

  /// Closes the files when nothing was written to them for inactivityTimeoutSeconds. The next record opens them again.
  void closeIdleFiles() noexcept EXCLUDES(fileMutex_);

  /// Waits until the records queued before the call are in their files.
  /// \return false when there was no progress for 10 seconds.
  bool flush();
  /// Makes run() return once the queue is empty.
  void close() { queue_.close(); }
  /// Closes the files for good. Records that come later are lost.
  void closeFiles() EXCLUDES(fileMutex_);

 private:
  bool writeWaiting() noexcept EXCLUDES(fileMutex_);

  const std::size_t threshold_;
  std::uint64_t admittedFrom_;
  std::wstring programName_;
  bool callerWrites_ = false;
  LogQueue queue_;

  Mutex fileMutex_;  ///< also keeps the records in order: it is held from the taking of records to their writing
  RecordBuffer taken_ GUARDED_BY(fileMutex_);
  LogWriter writer_ GUARDED_BY(fileMutex_);
  bool closed_ GUARDED_BY(fileMutex_) = false;
};

}  // namespace CORE
