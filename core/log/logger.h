#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "core/base/mutex.h"
#include "core/format/format.h"
#include "core/log/log.h"

namespace CORE {

class LogSession;

/// The process-wide log. It owns the session between start and stop, and the writer thread. It is never destroyed,
/// because threads may log until the process is gone. No operation reports a failure to its caller; what cannot be
/// written is lost.
///
/// start, flush and stop are called by one thread at a time; write and setMessageFilter by any thread.
class corelogger {
 public:
  enum class Writer {
    kThread,  ///< a thread writes the queued records; when none can be started, the log call does
    kCaller,  ///< the log call itself writes
  };
  /// A function that may change the message of a record before it is queued. It runs on the logging thread.
  using MessageFilter = void (*)(std::uint32_t level, std::wstring& message);

  static corelogger& instance();

  /// Reads the settings and begins to admit records. A running session is stopped first.
  /// \param component  name of the process in its lines.
  void start(std::wstring component, Writer writer = Writer::kThread) noexcept;
  /// Waits until every record queued before the call is in its file, or until the writer has made no progress for 10
  /// seconds.
  void flush() noexcept;
  /// Flushes, ends the writer thread and closes the files; no record is admitted any more. A writer that hangs in the
  /// platform is left behind, with its session.
  void stop() noexcept;

  /// Registers the filter for records of level 2 (INFO) and above; null removes it.
  void setMessageFilter(MessageFilter filter) noexcept { filter_.store(filter); }

  /// Makes and queues a record. CORE::log is the usual way here; this call does not ask logAdmits.
  /// \param label  stands in the line in place of the level's name; empty for that name.
  void write(std::uint32_t level, std::wstring_view label, std::wstring_view format,
             std::span<const FormatArgument> arguments) noexcept;

 private:
  corelogger() = default;
  std::shared_ptr<LogSession> session() EXCLUDES(mutex_);
  std::shared_ptr<LogSession> takeSession() EXCLUDES(mutex_);
  void submit(LogSession& session, std::uint32_t level, std::wstring_view label, std::wstring_view format,
              std::span<const FormatArgument> arguments);

  Mutex mutex_;
  std::shared_ptr<LogSession> session_ GUARDED_BY(mutex_);
  /// The same session for log calls. They are counted instead of owning it: a count costs a call less than a lock and a
  /// shared owner do.
  std::atomic<LogSession*> current_{nullptr};
  std::atomic<std::uint32_t> calls_{0};  ///< log calls that may be using current_
  std::thread writer_;                   ///< of the thread that starts and stops
  std::atomic<MessageFilter> filter_{nullptr};
};

}  // namespace CORE
