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
/// The bytes that a process writes before it gives the lock of the files to others: written soon, and so much that the
/// waits for the lock cost little beside it.
constexpr std::size_t kMaxBytesUnderLock = 64 << 10;

LineLayout layoutOf(const LogSettings& settings, std::wstring component) {
  LineLayout layout;
  layout.processId = platform::current().processes.GetCurrentProcessId();
  layout.processIdText = format(L"%04X", layout.processId);
  layout.component = std::move(component);
  layout.truncateIds = settings.truncateProcIdThreadId;
  layout.maskLegacyWord = settings.legacyRedactEnabled;
  return layout;
}

/// Returns the folder of the files, with a separator at its end.
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
      delayTicks_(settings.logDelayNotificationTreshold),
      idleTicks_(settings.inactivityTimeoutSeconds * kTicksPerSecond),
      maxLinesPerWrite_(settings.developerMachine ? 1 : settings.batchLogMessageCount),
      maker_(layoutOf(settings, std::move(component))) {
  const std::wstring folder = folderOf(settings, banner_.program);
  const LogRotation::Limits limits{settings.maxDebugLogs, settings.maxDaysKept, settings.maxDebugLogSizeMB * kMiB};
  info_.rotation = LogRotation(folder, settings.fileNameBase, limits);
  info_.enabled = settings.logEnabled;
  debug_.rotation = LogRotation(folder, settings.debugNameBase, limits);
  debug_.enabled = settings.debugEnabled || settings.traceEnabled;
  banner_.debugEnabled = debug_.enabled;
  diskGuard_ = LogDiskGuard(folder, settings.diskThresholdForLogAndEventsMB);
  if (info_.enabled || debug_.enabled) {
    // The folder is made before the writer thread runs: the agent makes its own folder below this one, and there a
    // folder that somebody else makes at the same moment counts as a failure. A failure here shows at the first write.
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
  const bool open = info_.rotation.file().isOpen() || debug_.rotation.file().isOpen();
  if (open && platform::current().clock.GetTickCount() - lastWrite_ >= idleTicks_) {
    close();
  }
}

void LogWriter::close() {
  info_.rotation.file().close();
  debug_.rotation.file().close();
}

std::size_t LogWriter::write(const RecordBuffer& records, std::size_t first, bool callerWrites) {
  banner_.callerWrites = callerWrites;
  maker_.setBias(currentBias(readBias_));
  lastWrite_ = platform::current().clock.GetTickCount();
  lines_.clear();
  text_.clear();
  std::size_t count = records.size() - first;  // all of them: a stop drops those that wait
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

/// Makes the lines of one hold of the files' lock.
/// \return the number of records.
std::size_t LogWriter::makeLines(const RecordBuffer& records, std::size_t first) {
  std::size_t next = first;
  for (; next < records.size() && text_.size() < kMaxBytesUnderLock; ++next) {
    const BufferedRecord record = records.at(next);
    maker_.append(record, text_);
    lines_.push_back({text_.size(), record.level, record.tickCount});
  }
  return next - first;
}

/// Writes the lines from that level on to one file. A line about a failure goes to the other one, if that is open.
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
    target.hasBanner = true;
    target.failureLogged = false;
  } else if (!target.failureLogged && other.enabled && other.rotation.file().isOpen()) {
    other.rotation.file().write(maker_.line(makeLogRecord(kError, {}, failure)));
    target.failureLogged = true;
  }
}

/// \return why it failed; empty when it succeeded.
std::wstring LogWriter::tryToWrite(Target& target, std::uint32_t fromLevel, std::size_t bytes) {
  platform::Status status{true, platform::kErrorSuccess};
  const LogRotation::Opened opened = target.rotation.prepare(bytes, lastWrite_, status);
  if (opened == LogRotation::Opened::kFailed) {
    return format(L"Open file error, errno=0x%p\n\nfile = %s\n\nMessage = %s", status.error, target.rotation.path(),
                  systemErrorText(status.error));
  }
  LogFile& file = target.rotation.file();
  const std::uint32_t lockWait = file.lock();
  status = writeLines(file, banner_.lines(maker_, opened, !target.hasBanner), fromLevel, lockWait);
  file.unlock();
  return status ? std::wstring()
                : format(L"System error occurred while attempting to log a message\n\nError = %s",
                         systemErrorText(status.error));
}

/// Writes the text and then the lines of the present write(), maxLinesPerWrite_ with a call.
/// \return the latest failure, if any.
platform::Status LogWriter::writeLines(LogFile& file, std::string text, std::uint32_t fromLevel,
                                       std::uint32_t lockWait) const {
  platform::Status status{true, platform::kErrorSuccess};
  std::size_t linesInText = 0;
  const auto write = [&] {
    const platform::Status written = file.write(text);
    status = written ? status : written;
    text.clear();
    linesInText = 0;
  };
  std::size_t begin = 0;
  for (const Line& line : lines_) {
    if (line.level >= fromLevel) {
      text.append(text_, begin, line.end - begin);
      const std::uint32_t delay = lastWrite_ - line.tickCount;
      if (delayTicks_ != 0 && delay > delayTicks_) {
        text += formatNarrow("(LogDelayTicks=%u, LogLockWaitTicks=%u)\r\n", delay, lockWait);
      }
      if (++linesInText == maxLinesPerWrite_) {
        write();
      }
    }
    begin = line.end;
  }
  if (linesInText > 0) {
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
