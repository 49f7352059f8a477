#include "core/log/log_writer.h"

#include <utility>

#include "core/base/unicode.h"
#include "core/files/protected_folder.h"
#include "core/format/error_text.h"
#include "core/format/format.h"
#include "core/log/log.h"
#include "core/log/log_folder.h"
#include "core/settings/environment.h"
#include "platform/platform.h"
#include "platform/processes.h"

namespace CORE {
namespace {

constexpr std::uint64_t kTicksPerSecond = 1000;
constexpr std::uint64_t kMiB = 1 << 20;
/// What a process writes before others have their turn; much more than a wait for the turn costs, and soon written.
constexpr std::size_t kBytesOfTurn = 64 << 10;

LineLayout layoutOf(const LogSettings& settings, std::wstring component) {
  LineLayout layout;
  layout.processId = platform::current().processes.GetCurrentProcessId();
  layout.processIdText = format(L"%04X", layout.processId);
  layout.component = std::move(component);
  layout.truncateIds = settings.truncateProcIdThreadId;
  layout.maskLegacyWord = settings.legacyRedactEnabled;
  return layout;
}

/// With its separator at the end.
std::wstring folderOf(const LogSettings& settings, const std::wstring& program) {
  std::wstring folder = settings.logFileDirectory;
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

LogWriter::LogWriter(const LogSettings& settings, std::wstring program, std::wstring component, Notice notice)
    : banner_{std::move(program)},
      notice_(std::move(notice)),
      readBias_(settings.readActiveTimeBiasFromRegistry),
      slowTicks_(settings.logDelayNotificationTreshold),
      idleTicks_(settings.inactivityTimeoutSeconds * kTicksPerSecond),
      group_(settings.developerMachine ? 1 : settings.batchLogMessageCount),
      maker_(layoutOf(settings, std::move(component))) {
  const std::wstring folder = folderOf(settings, banner_.program);
  const LogRotation::Limits limits{settings.maxDebugLogs, settings.maxDaysKept, settings.maxDebugLogSizeMB * kMiB};
  info_.series = LogRotation(folder, settings.fileNameBase, limits);
  info_.enabled = settings.logEnabled;
  debug_.series = LogRotation(folder, settings.debugNameBase, limits);
  debug_.enabled = settings.debugEnabled || settings.traceEnabled;
  banner_.debugEnabled = debug_.enabled;
  diskGuard_ = LogDiskGuard(folder, settings.diskThresholdForLogAndEventsMB);
  if (info_.enabled || debug_.enabled) {
    // Before the writer runs: the agent makes its folder below this one, and a folder that somebody else makes at the
    // same moment counts as a failure there. A failure here shows at the first write.
    makeProtectedFolder(folder.substr(0, folder.size() - 1));
  }
  if (settings.sysMessageToConsole) {
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

std::size_t LogWriter::write(const RecordBuffer& records, std::size_t first, bool callerWrites) {
  banner_.callerWrites = callerWrites;
  maker_.setBias(currentBias(readBias_));
  lastWrite_ = platform::current().clock.GetTickCount();
  lines_.clear();
  text_.clear();
  std::size_t count = records.size() - first;
  switch (diskGuard_.check(lastWrite_)) {
    case LogDiskGuard::Action::kWrite:
      count = makeLines(records, first);
      writeToConsole();
      break;
    case LogDiskGuard::Action::kWriteLastLine:
      text_ = maker_.line(
          makeLogRecord(kWarn, {},
                        L"Disk space free threshold for log reached.  No more messages will be logged until more disk "
                        L"space has become available or the threshold is reduced."));
      lines_.push_back({text_.size(), kWarn, lastWrite_});
      break;
    case LogDiskGuard::Action::kDrop:
      return count;
  }
  writeTo(debug_, info_, kTrace);
  writeTo(info_, debug_, kInfo);
  return count;
}

std::size_t LogWriter::makeLines(const RecordBuffer& records, std::size_t first) {
  std::size_t next = first;
  for (; next < records.size() && text_.size() < kBytesOfTurn; ++next) {
    const BufferedRecord record = records.at(next);
    maker_.append(record, text_);
    lines_.push_back({text_.size(), record.level, record.tickCount});
  }
  return next - first;
}

void LogWriter::writeTo(Target& target, Target& other, std::uint32_t fromLevel) {
  std::size_t bytes = 0;
  std::size_t begin = 0;
  for (const Line& line : lines_) {
    bytes += line.level >= fromLevel ? line.end - begin : 0;
    begin = line.end;
  }
  if (!target.enabled || bytes == 0) {
    return;
  }
  const std::wstring failure = tryToWrite(target, fromLevel, bytes);
  if (failure.empty()) {
    target.started = true;
    target.failing = false;
  } else if (!target.failing && other.enabled && other.series.file().isOpen()) {
    other.series.file().write(maker_.line(makeLogRecord(kError, {}, failure)));
    target.failing = true;
  }
}

/// \return why it failed; empty when it did not
std::wstring LogWriter::tryToWrite(Target& target, std::uint32_t fromLevel, std::size_t bytes) {
  platform::Status status{true, platform::kErrorSuccess};
  const LogRotation::Opened opened = target.series.prepare(bytes, lastWrite_, status);
  if (opened == LogRotation::Opened::kFailed) {
    return format(L"Open file error, errno=0x%p\n\nfile = %s\n\nMessage = %s", status.error, target.series.path(),
                  systemErrorText(status.error));
  }
  LogFile& file = target.series.file();
  const std::uint32_t lockWait = file.lock();
  status = writeLines(file, banner_.lines(maker_, opened, !target.started), fromLevel, lockWait);
  file.unlock();
  return status ? std::wstring()
                : format(L"System error occurred while attempting to log a message\n\nError = %s",
                         systemErrorText(status.error));
}

/// Writes the text and then the lines of this turn, so many with a call. Gives the last failure, if any.
platform::Status LogWriter::writeLines(LogFile& file, std::string text, std::uint32_t fromLevel,
                                       std::uint32_t lockWait) const {
  platform::Status status{true, platform::kErrorSuccess};
  std::size_t waiting = 0;
  const auto write = [&] {
    const platform::Status written = file.write(text);
    status = written ? status : written;
    text.clear();
    waiting = 0;
  };
  std::size_t begin = 0;
  for (const Line& line : lines_) {
    if (line.level >= fromLevel) {
      text.append(text_, begin, line.end - begin);
      const std::uint32_t delay = lastWrite_ - line.tickCount;
      if (slowTicks_ != 0 && delay > slowTicks_) {
        text += formatNarrow("(LogDelayTicks=%u, LogLockWaitTicks=%u)\r\n", delay, lockWait);
      }
      if (++waiting == group_) {
        write();
      }
    }
    begin = line.end;
  }
  if (waiting > 0) {
    write();
  }
  return status;
}

void LogWriter::writeToConsole() {
  std::wstring text;
  std::size_t begin = 0;
  for (const Line& line : lines_) {
    if (console_.isOpen() && line.level >= kInfo) {
      text += toWideLossy(std::string_view(text_).substr(begin, line.end - begin));
    }
    begin = line.end;
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
