#include "core/log/log_session.h"

#include <chrono>
#include <limits>

#include "core/format/format.h"
#include "core/log/log.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/system.h"

namespace CORE {
namespace {

constexpr std::chrono::seconds kFlushTimeout{10};
constexpr std::chrono::seconds kIdleCheckInterval{1};

std::uint64_t lowestLevel(const LogSettings& settings) {
  if (settings.traceEnabled) {
    return kTrace;
  }
  if (settings.debugEnabled) {
    return kDebug;
  }
  return settings.logEnabled || settings.eventEnabled ? std::uint64_t{kInfo}
                                                      : std::numeric_limits<std::uint64_t>::max();
}

std::wstring programName() {
  const std::wstring path = platform::current().system.GetModuleFileNameW().value;
  return path.substr(path.find_last_of(L"\\/") + 1);
}

}  // namespace

LogSession::LogSession(const LogSettings& settings, std::wstring component)
    : threshold_(settings.msgQueueSizeThreshold),
      admittedFrom_(lowestLevel(settings)),
      programName_(programName()),
      queue_(threshold_),
      writer_(settings, programName_, std::move(component),
              [this](const LogRecord& record) { queue_.pushNotice(record); }) {}

void LogSession::submit(const LogRecord& record) {
  if (queue_.push(record) == LogQueue::Push::kFirstDropped) {
    queue_.pushNotice(
        makeLogRecord(kWarn, {},
                      format(L"Log message threshold %zu reached dropping log messages for exe %s with PID %u.",
                             threshold_, programName_, platform::current().processes.GetCurrentProcessId())));
  }
  if (callerWrites_) {
    while (writeWaiting()) {  // until nothing waits: writing may queue a notice
    }
  }
}

void LogSession::run() noexcept {
  for (;;) {
    switch (queue_.waitForRecords(kIdleCheckInterval)) {
      case LogQueue::Wait::kRecords:
        writeWaiting();
        break;
      case LogQueue::Wait::kNothing:
        closeIdleFiles();
        break;
      case LogQueue::Wait::kClosed:
        return;
    }
  }
}

void LogSession::closeIdleFiles() noexcept {
  const MutexLock lock(fileMutex_);
  writer_.closeIdleFiles();
}

bool LogSession::flush() {
  if (callerWrites_) {
    while (writeWaiting()) {
    }
  }
  return queue_.waitUntilWritten(kFlushTimeout);
}

void LogSession::closeFiles() {
  const MutexLock lock(fileMutex_);
  closed_ = true;
  writer_.close();
}

/// Writes the records that wait now.
/// \return whether there were any.
bool LogSession::writeWaiting() noexcept {
  const MutexLock lock(fileMutex_);
  queue_.take(taken_);
  for (std::size_t done = 0; done < taken_.size();) {
    std::size_t count = taken_.size() - done;
    try {
      if (!closed_) {
        count = writer_.write(taken_, done, callerWrites_);
      }
    } catch (...) {
      // Out of memory: this record is lost, and a line about that would need memory, too. Those behind it are still
      // tried.
      count = 1;
    }
    queue_.markWritten(count);
    done += count;
  }
  return !taken_.empty();
}

}  // namespace CORE
