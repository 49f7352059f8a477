#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/log_console.h"
#include "core/log_disk_guard.h"
#include "core/log_line.h"
#include "core/log_series.h"
#include "core/log_settings.h"

namespace CORE {

/// Makes a record of the calling thread, now.
LogRecord makeLogRecord(std::uint32_t level, std::wstring label, std::wstring message);

/// From records to lines in the info file (INFO and above), the debug file (all) and the console. Guarded by its owner.
class LogWriter {
 public:
  /// Takes a record of the logger's own that is to be written like any other.
  using Notice = std::function<void(LogRecord)>;

  /// \param program  file name of the executable. \param component  name of the process in its lines.
  LogWriter(const LogSettings& settings, std::wstring program, std::wstring component, Notice notice);

  /// Writes the records; those that cannot be written are lost, which the other file tells once.
  /// \param callerWrites  there is no writer thread; for the banner.
  void write(const std::vector<LogRecord>& records, bool callerWrites);
  /// Closes files to which nothing was written for "InactivityTimeoutSeconds"; the next record opens them again.
  void closeIdleFiles();
  void close();

 private:
  struct Target {
    LogSeries series;
    bool enabled = false;
    bool failing = false;  ///< the present failure has been told
    bool started = false;  ///< it has the banner of this process
  };
  /// A finished line and when its record was made.
  struct Line {
    std::string text;
    std::uint32_t level;
    std::uint32_t tickCount;
  };
  using Lines = std::vector<Line>;

  void writeTo(Target& target, Target& other, const Lines& lines, std::uint32_t fromLevel);
  /// \return why it failed; empty when it did not
  std::wstring tryToWrite(Target& target, const Lines& lines, std::uint32_t fromLevel, std::size_t bytes);
  std::string textOf(const Lines& lines, std::uint32_t fromLevel, std::uint32_t lockWait) const;
  std::string header(const Target& target, LogSeries::Opened opened) const;
  std::wstring startedText() const;
  void writeToConsole(const std::vector<LogRecord>& records);
  std::string lineOf(const LogRecord& record) const;

  const std::wstring programName_;
  const Notice notice_;
  const bool readBias_;
  const std::uint32_t slowTicks_;  ///< a line written later is followed by its delay; 0: none
  const std::uint64_t idleTicks_;
  bool callerWrites_ = false;
  LineLayout layout_;
  Target info_;
  Target debug_;
  LogDiskGuard diskGuard_;
  LogConsole console_;
  std::uint32_t lastWrite_ = 0;  ///< ticks
};

}  // namespace CORE
