#include "core/log_session.h"

#include <chrono>
#include <limits>

#include "core/convert.h"
#include "core/error_text.h"
#include "core/format.h"
#include "core/log.h"
#include "core/log_context.h"
#include "core/log_folder.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/system.h"

namespace CORE {
namespace {

constexpr std::chrono::seconds kFlushPatience{10};

std::uint64_t lowestLevel(const LogSettings& settings) {
  if (settings.flag(L"traceEnabled")) {
    return kTrace;
  }
  if (settings.flag(L"debugEnabled")) {
    return kDebug;
  }
  const bool any = settings.flag(L"logEnabled") || settings.flag(L"eventEnabled");
  return any ? std::uint64_t{kInfo} : std::numeric_limits<std::uint64_t>::max();
}

std::wstring folderOf(const LogSettings& settings) {
  std::wstring folder = settings.folder().empty() ? defaultLogFolder() : settings.folder();
  if (folder.empty() || (folder.back() != L'\\' && folder.back() != L'/')) {
    folder += L'\\';
  }
  return folder;
}

std::wstring programName() {
  const std::wstring path = platform::current().system.GetModuleFileNameW().value;
  return path.substr(path.find_last_of(L"\\/") + 1);
}

}  // namespace

LogRecord makeLogRecord(std::uint32_t level, std::wstring label, std::wstring message) {
  const platform::Platform& platform = platform::current();
  LogRecord record;
  record.level = level;
  record.label = std::move(label);
  record.message = std::move(message);
  record.context = logContext();
  record.time = platform.clock.GetSystemTimeAsFileTime();
  record.tickCount = platform.clock.GetTickCount();
  record.threadId = platform.processes.GetCurrentThreadId();
  return record;
}

LogSession::LogSession(const LogSettings& settings, std::wstring component)
    : threshold_(settings.number(L"msgQueueSizeThreshold")),
      batch_(settings.number(L"batchLogMessageCount")),
      readBias_(settings.flag(L"readActiveTimeBiasFromRegistry")),
      admittedFrom_(lowestLevel(settings)),
      programName_(programName()),
      queue_(threshold_) {
  layout_.processId = platform::current().processes.GetCurrentProcessId();
  layout_.processIdText = format(L"%04X", layout_.processId);
  layout_.component = std::move(component);
  layout_.truncateIds = settings.flag(L"truncateProcIdThreadId");
  layout_.maskLegacyWord = settings.flag(L"legacyRedactEnabled");
  const std::wstring folder = folderOf(settings);
  info_.file = LogFile(folder, settings.text(L"FileNameBase"));
  info_.enabled = settings.flag(L"logEnabled");
  debug_.file = LogFile(folder, settings.text(L"DebugNameBase"));
  debug_.enabled = settings.flag(L"debugEnabled") || settings.flag(L"traceEnabled");
  if (info_.enabled || debug_.enabled) {
    // Before the writer runs: the agent makes its folder below this one, and a folder that somebody else makes at the
    // same moment counts as a failure there.
    info_.file.makeFolder();
  }
}

void LogSession::submit(LogRecord record) {
  if (queue_.push(std::move(record)) == LogQueue::Push::kFirstDropped) {
    queue_.pushNotice(
        makeLogRecord(kWarn, {},
                      format(L"Log message threshold %zu reached dropping log messages for exe %s with PID %u.",
                             threshold_, programName_, platform::current().processes.GetCurrentProcessId())));
  }
  if (callerWrites_) {
    while (writeBatch()) {
    }
  }
}

void LogSession::run() noexcept {
  while (queue_.waitForRecords()) {
    writeBatch();
  }
}

bool LogSession::flush() {
  if (callerWrites_) {
    while (writeBatch()) {
    }
  }
  return queue_.waitUntilWritten(kFlushPatience);
}

void LogSession::closeFiles() {
  const std::lock_guard lock(fileMutex_);
  closed_ = true;
  info_.file.close();
  debug_.file.close();
}

bool LogSession::writeBatch() noexcept {
  const std::lock_guard lock(fileMutex_);
  std::vector<LogRecord> records;
  try {
    records = queue_.take(batch_);
    if (!closed_ && !records.empty()) {
      writeRecords(records);
    }
  } catch (...) {
    // Out of memory: this batch is lost. There is nobody to tell.
  }
  queue_.markWritten(records.size());
  return !records.empty();
}

void LogSession::writeRecords(const std::vector<LogRecord>& records) {
  layout_.bias = currentBias(readBias_);
  std::string infoLines;
  std::string debugLines;
  for (const LogRecord& record : records) {
    const std::string line = toUtf8Lossy(logLine(record, layout_));
    if (debug_.enabled) {
      debugLines += line;
    }
    if (info_.enabled && record.level >= kInfo) {
      infoLines += line;
    }
  }
  writeTo(debug_, info_, debugLines);
  writeTo(info_, debug_, infoLines);
}

void LogSession::writeTo(Target& target, Target& other, std::string_view lines) {
  if (lines.empty()) {
    return;
  }
  const LogFile::Outcome outcome = target.file.write(lines);
  if (!outcome.status && !target.failing && other.enabled && other.file.isOpen()) {
    other.file.write(failureLine(target, outcome));
    target.failing = true;
  }
  target.failing = target.failing && !outcome.status;
}

std::string LogSession::failureLine(const Target& target, const LogFile::Outcome& outcome) {
  const std::wstring message = systemErrorText(outcome.status.error);
  const std::wstring text =
      outcome.opened ? format(L"System error occurred while attempting to log a message\n\nError = %s", message)
                     : format(L"Open file error, errno=0x%p\n\nfile = %s\n\nMessage = %s", outcome.status.error,
                              target.file.path(), message);
  return toUtf8Lossy(logLine(makeLogRecord(kError, {}, text), layout_));
}

}  // namespace CORE
