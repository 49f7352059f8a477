#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "core/log/log_banner.h"
#include "core/log/log_console.h"
#include "core/log/log_disk_guard.h"
#include "core/log/log_line.h"
#include "core/log/log_rotation.h"
#include "core/log/log_settings.h"

namespace CORE {

/// From records to lines in the info file (INFO and above), the debug file (all) and the console. Guarded by its owner.
class LogWriter {
 public:
  /// Takes a record of the logger's own that is to be written like any other.
  using Notice = std::function<void(const LogRecord&)>;

  /// \param program  file name of the executable. \param component  name of the process in its lines.
  LogWriter(const LogSettings& settings, std::wstring program, std::wstring component, Notice notice);

  /// Writes as many of the records, from that one on, as one turn at the files takes, and returns their number. Those
  /// that cannot be written are lost, which the other file tells once.
  /// \param callerWrites  there is no writer thread; for the banner.
  std::size_t write(const RecordBuffer& records, std::size_t first, bool callerWrites);
  /// Closes files to which nothing was written for "InactivityTimeoutSeconds"; the next record opens them again.
  void closeIdleFiles();
  void close();

 private:
  struct Target {
    LogRotation series;
    bool enabled = false;
    bool failing = false;  ///< the present failure has been told
    bool started = false;  ///< it has the banner of this process
  };
  /// Where a finished line ends, and what its record was.
  struct Line {
    std::size_t end;
    std::uint32_t level;
    std::uint32_t tickCount;
  };

  std::size_t makeLines(const RecordBuffer& records, std::size_t first);
  void writeTo(Target& target, Target& other, std::uint32_t fromLevel);
  std::wstring tryToWrite(Target& target, std::uint32_t fromLevel, std::size_t bytes);
  platform::Status writeLines(LogFile& file, std::string text, std::uint32_t fromLevel, std::uint32_t lockWait) const;
  void writeToConsole();

  LogBanner banner_;
  const Notice notice_;
  const bool readBias_;
  const std::uint32_t slowTicks_;  ///< a line written later is followed by its delay; 0: none
  const std::uint64_t idleTicks_;
  const std::size_t group_;  ///< most lines of one write
  LineMaker maker_;
  std::string text_;         ///< the lines of this turn
  std::vector<Line> lines_;  ///< where they are
  Target info_;
  Target debug_;
  LogDiskGuard diskGuard_;
  LogConsole console_;
  std::uint32_t lastWrite_ = 0;  ///< ticks
};

}  // namespace CORE
