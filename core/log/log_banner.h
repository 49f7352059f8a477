#pragma once

#include <string>

#include "core/log/log_line.h"
#include "core/log/log_rotation.h"

namespace CORE {

/// What a log file begins with, and what each process that writes to it tells of itself first.
struct LogBanner {
  std::wstring program;  ///< file name of the executable
  bool debugEnabled = false;
  bool callerWrites = false;  ///< there is no writer thread

  /// The lines for a file that has just been opened so. \param first  the process has not written to it yet.
  std::string lines(LineMaker& maker, LogRotation::Opened opened, bool first) const;

 private:
  std::wstring startedText(std::uint32_t processId) const;
};

}  // namespace CORE
