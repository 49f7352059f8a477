#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "core/format/format.h"
#include "core/log/log.h"

namespace CORE {

class LogSession;

/// The process-wide log: it owns the session between start and stop and the writer thread. It is never destroyed, since
/// threads may log until the process is gone. Nothing it does fails towards its caller; what cannot be written is lost.
///
/// start, flush and stop are called by one thread at a time; write and setMessageFilter by any.
class corelogger {
 public:
  enum class Writer {
    kThread,  ///< a thread writes the queued records; the caller does when none can be started
    kCaller,  ///< the log call itself writes
  };
  /// May change the message of a record (of that level) before it is queued. Runs on the logging thread.
  using MessageFilter = void (*)(std::uint32_t level, std::wstring& message);

  static corelogger& instance();

  /// Reads the settings and begins to admit records; a session that runs is stopped first.
  /// \param component  name of the process in its lines.
  void start(std::wstring component, Writer writer = Writer::kThread) noexcept;
  /// Returns when every record queued before the call is in its file, or when the writer made no progress for 10
  /// seconds.
  void flush() noexcept;
  /// Flushes, ends the writer, closes the files; nothing is admitted any more. A writer that hangs in the platform is
  /// left behind.
  void stop() noexcept;

  /// Registers the filter for records of level 2 and above; null takes it away.
  void setMessageFilter(MessageFilter filter) noexcept { filter_.store(filter); }

  /// A log call; see CORE::log. Does not ask logAdmits.
  /// \param label  stands in the line in place of the level's name; empty for that name.
  void write(std::uint32_t level, std::wstring_view label, std::wstring_view format,
             std::span<const FormatArgument> arguments) noexcept;

 private:
  corelogger() = default;
  std::shared_ptr<LogSession> session();
  std::shared_ptr<LogSession> takeSession();
  void submit(LogSession& session, std::uint32_t level, std::wstring_view label, std::wstring_view format,
              std::span<const FormatArgument> arguments);

  std::mutex mutex_;
  std::shared_ptr<LogSession> session_;  ///< guarded by mutex_
  /// The session again, for log calls: counting them costs each less than a lock and a shared owner.
  std::atomic<LogSession*> current_{nullptr};
  std::atomic<std::uint32_t> calls_{0};  ///< log calls that may be using it
  std::thread writer_;
  std::atomic<MessageFilter> filter_{nullptr};
};

}  // namespace CORE
