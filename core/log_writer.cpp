#include "core/log_writer.h"

#include <utility>

#include "core/convert.h"
#include "core/environment.h"
#include "core/error_text.h"
#include "core/format.h"
#include "core/log.h"
#include "core/log_context.h"
#include "core/log_folder.h"
#include "core/program_version.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/system.h"

namespace CORE {
namespace {

constexpr std::uint64_t kTicksPerSecond = 1000;
constexpr std::uint64_t kMiB = 1 << 20;

/// With its separator at the end.
std::wstring folderOf(const LogSettings& settings, const std::wstring& program) {
  std::wstring folder = settings.folder();
  if (folder.empty() && settings.isUserModeProgram(program)) {
    folder = expandEnvironment(L"%LOCALAPPDATA%\\Calvera\\Meridon\\logs").value_or(L"");
  }
  folder = folder.empty() ? defaultLogFolder() : folder;
  if (folder.empty() || (folder.back() != L'\\' && folder.back() != L'/')) {
    folder += L'\\';
  }
  return folder;
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

LogWriter::LogWriter(const LogSettings& settings, std::wstring program, std::wstring component, Notice notice)
    : programName_(std::move(program)),
      notice_(std::move(notice)),
      readBias_(settings.flag(L"readActiveTimeBiasFromRegistry")),
      slowTicks_(settings.number(L"LogDelayNotificationTreshold")),
      idleTicks_(settings.number(L"InactivityTimeoutSeconds") * kTicksPerSecond) {
  layout_.processId = platform::current().processes.GetCurrentProcessId();
  layout_.processIdText = format(L"%04X", layout_.processId);
  layout_.component = std::move(component);
  layout_.truncateIds = settings.flag(L"truncateProcIdThreadId");
  layout_.maskLegacyWord = settings.flag(L"legacyRedactEnabled");
  const std::wstring folder = folderOf(settings, programName_);
  const LogSeries::Limits limits{settings.number(L"MaxDebugLogs"), settings.number(L"MaxDaysKept"),
                                 settings.number(L"MaxDebugLogSizeMB") * kMiB};
  info_.series = LogSeries(folder, settings.text(L"FileNameBase"), limits);
  info_.enabled = settings.flag(L"logEnabled");
  debug_.series = LogSeries(folder, settings.text(L"DebugNameBase"), limits);
  debug_.enabled = settings.flag(L"debugEnabled") || settings.flag(L"traceEnabled");
  diskGuard_ = LogDiskGuard(folder, settings.number(L"DiskThresholdForLogAndEventsMB"));
  if (info_.enabled || debug_.enabled) {
    // Before the writer runs: the agent makes its folder below this one, and a folder that somebody else makes at the
    // same moment counts as a failure there. A failure here shows at the first write.
    makeProtectedFolder(folder.substr(0, folder.size() - 1));
  }
  if (settings.consoleWanted()) {
    const platform::Status opened = console_.open();
    if (!opened) {
      notice_(
          makeLogRecord(kError, {}, format(L"ERROR INITIATING SYSMESSAGE, error=%s", systemErrorText(opened.error))));
    }
  }
}

void LogWriter::closeIdleFiles() {
  const bool open = info_.series.file().isOpen() || debug_.series.file().isOpen();
  if (open && platform::current().clock.GetTickCount() - lastWrite_ >= idleTicks_) {
    close();
  }
}

void LogWriter::close() {
  info_.series.file().close();
  debug_.series.file().close();
}

void LogWriter::write(const std::vector<LogRecord>& records, bool callerWrites) {
  callerWrites_ = callerWrites;
  layout_.bias = currentBias(readBias_);
  lastWrite_ = platform::current().clock.GetTickCount();
  Lines lines;
  switch (diskGuard_.look(lastWrite_)) {
    case LogDiskGuard::Verdict::kWrite:
      for (const LogRecord& record : records) {
        lines.push_back({lineOf(record), record.level, record.tickCount});
      }
      writeToConsole(records);
      break;
    case LogDiskGuard::Verdict::kLastLine: {
      const LogRecord last =
          makeLogRecord(kWarn, {},
                        L"Disk space free threshold for log reached.  No more messages will be logged until more disk "
                        L"space has become available or the threshold is reduced.");
      lines.push_back({lineOf(last), last.level, lastWrite_});
      break;
    }
    case LogDiskGuard::Verdict::kSilent:
      return;
  }
  writeTo(debug_, info_, lines, kTrace);
  writeTo(info_, debug_, lines, kInfo);
}

std::string LogWriter::lineOf(const LogRecord& record) const { return toUtf8Lossy(logLine(record, layout_)); }

void LogWriter::writeTo(Target& target, Target& other, const Lines& lines, std::uint32_t fromLevel) {
  std::size_t bytes = 0;
  for (const Line& line : lines) {
    bytes += line.level >= fromLevel ? line.text.size() : 0;
  }
  if (!target.enabled || bytes == 0) {
    return;
  }
  const std::wstring failure = tryToWrite(target, lines, fromLevel, bytes);
  if (failure.empty()) {
    target.started = true;
    target.failing = false;
  } else if (!target.failing && other.enabled && other.series.file().isOpen()) {
    other.series.file().write(lineOf(makeLogRecord(kError, {}, failure)));
    target.failing = true;
  }
}

std::wstring LogWriter::tryToWrite(Target& target, const Lines& lines, std::uint32_t fromLevel, std::size_t bytes) {
  platform::Status status{true, platform::kErrorSuccess};
  const LogSeries::Opened opened = target.series.prepare(bytes, lastWrite_, status);
  if (opened == LogSeries::Opened::kFailed) {
    return format(L"Open file error, errno=0x%p\n\nfile = %s\n\nMessage = %s", status.error, target.series.path(),
                  systemErrorText(status.error));
  }
  LogFile& file = target.series.file();
  const std::uint32_t lockWait = file.takeTurn();
  status = file.write(header(target, opened) + textOf(lines, fromLevel, lockWait));
  file.endTurn();
  return status ? std::wstring()
                : format(L"System error occurred while attempting to log a message\n\nError = %s",
                         systemErrorText(status.error));
}

std::string LogWriter::textOf(const Lines& lines, std::uint32_t fromLevel, std::uint32_t lockWait) const {
  std::string text;
  for (const Line& line : lines) {
    if (line.level < fromLevel) {
      continue;
    }
    text += line.text;
    const std::uint32_t delay = lastWrite_ - line.tickCount;
    if (slowTicks_ != 0 && delay > slowTicks_) {
      text += toUtf8Lossy(format(L"(LogDelayTicks=%u, LogLockWaitTicks=%u)\r\n", delay, lockWait));
    }
  }
  return text;
}

std::string LogWriter::header(const Target& target, LogSeries::Opened opened) const {
  std::string text;
  const auto add = [&](std::wstring message) { text += lineOf(makeLogRecord(kInfo, {}, std::move(message))); };
  if (opened == LogSeries::Opened::kNew) {
    add(format(L"Log for %s", programName_));
  } else if (opened == LogSeries::Opened::kExisting) {
    add(L"Opening latest existing log file");
  }
  if (!target.started) {
    add(startedText());
    const wchar_t* const state =
        debug_.enabled ? L" ********** Debug log file is enabled for" : L" ********** Debug log file is disabled for";
    text += toUtf8Lossy(format(L"%s %s%s", state, programName_, L". **********\r\n"));
  }
  return text;
}

std::wstring LogWriter::startedText() const {
#ifdef NDEBUG
  constexpr wchar_t kBuildType[] = L"release";
#else
  constexpr wchar_t kBuildType[] = L"debug";
#endif
  const auto path = platform::current().system.GetModuleFileNameW();
  const std::wstring version = path ? ProgramVersion::of(path.value).version : std::wstring();
  const auto session = platform::current().processes.ProcessIdToSessionId(layout_.processId);
  return format(
      L"Program '%s' started, version=%s, pid=0x%X, buildtype=%s, usethread=%u, closeafterwrite=%u, sessionId=%d",
      programName_, version, layout_.processId, kBuildType, callerWrites_ ? 0 : 1, 0,
      session ? static_cast<std::int32_t>(session.value) : -1);
}

void LogWriter::writeToConsole(const std::vector<LogRecord>& records) {
  std::wstring text;
  for (const LogRecord& record : records) {
    text += console_.isOpen() && record.level >= kInfo ? logLine(record, layout_) : std::wstring();
  }
  if (text.empty()) {
    return;
  }
  const platform::Status written = console_.write(text);
  if (!written) {
    notice_(makeLogRecord(
        kError, {}, format(L"ERROR IN SYSMESSAGE WaitForSingleObject, error=%s", systemErrorText(written.error))));
  }
}

}  // namespace CORE
