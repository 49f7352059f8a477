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

/// Writes records as lines to the info file (INFO and above), the debug file (every record) and the console. The
/// owner's lock guards the object.
class LogWriter {
 public:
  /// A function that queues a record of the logger's own.
  using Notice = std::function<void(const LogRecord&)>;

  /// Makes the folder of the files and opens the console; the files are opened by the first write().
  /// \param program  file name of the executable.
  /// \param component  name of the process in its lines.
  LogWriter(const LogSettings& settings, std::wstring program, std::wstring component, Notice notice);

  /// Writes records, as many as one hold of the files' lock takes. Records that cannot be written are lost; the first
  /// time, a line in the other file says so.
  /// \param first  the number of the record to begin with.
  /// \param callerWrites  whether there is no writer thread; the banner shows it.
  /// \return the number of records that are done with.
  std::size_t write(const RecordBuffer& records, std::size_t first, bool callerWrites);
  /// Closes the files when nothing was written for inactivityTimeoutSeconds. The next record opens them again.
  void closeIdleFiles();
  void close();

 private:
  struct Target {
    LogRotation rotation;
    bool enabled = false;
    bool failureLogged = false;  ///< the other file has a line about the present failure
    bool hasBanner = false;      ///< the process has begun its part of the file
  };
  /// Where a finished line ends in text_, and what its record was.
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
  const std::uint32_t delayTicks_;  ///< a line that is written later than that is followed by its delay; 0: none is
  const std::uint64_t idleTicks_;
  const std::size_t maxLinesPerWrite_;
  LineMaker maker_;
  std::string text_;         ///< the lines of the present write()
  std::vector<Line> lines_;  ///< where they stand in text_
  Target info_;
  Target debug_;
  LogDiskGuard diskGuard_;
  LogConsole console_;
  std::uint32_t lastWrite_ = 0;  ///< ticks at the latest write()
};

}  // namespace CORE
