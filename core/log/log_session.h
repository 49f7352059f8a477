#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "core/log/log_line.h"
#include "core/log/log_queue.h"
#include "core/log/log_settings.h"
#include "core/log/log_writer.h"

namespace CORE {

/// What the logger has between its start and its stop: settings, queue and files. Any thread, unless said otherwise.
class LogSession {
 public:
  /// \param component  name of the process in its lines.
  LogSession(const LogSettings& settings, std::wstring component);

  /// The lowest level of which records are made; above every level when none is.
  std::uint64_t admittedFrom() const { return admittedFrom_; }

  /// Queues a record, or drops it when too many wait. Without a writer thread it is in its file on return.
  void submit(const LogRecord& record);
  /// The writer thread: writes until close() and then what is left.
  void run() noexcept;
  /// From now on submit() writes itself: there is no writer thread.
  void setCallerWrites() { callerWrites_ = true; }

  /// Closes files to which nothing was written for "InactivityTimeoutSeconds"; the next record opens them again.
  void closeIdleFiles() noexcept;

  /// Waits until the records queued before the call are in their files; false when there was no progress for 10
  /// seconds.
  bool flush();
  /// Lets run() return.
  void close() { queue_.close(); }
  /// Closes the files for good; records that come later are lost.
  void closeFiles();

 private:
  bool writeWaiting() noexcept;

  const std::size_t threshold_;
  std::uint64_t admittedFrom_;
  std::wstring programName_;
  bool callerWrites_ = false;
  LogQueue queue_;

  std::mutex fileMutex_;  ///< guards everything below, and the order of records
  RecordBuffer taken_;
  LogWriter writer_;
  bool closed_ = false;
};

}  // namespace CORE
