#pragma once

#include <string>

#include "core/log/log_line.h"
#include "core/log/log_rotation.h"

namespace CORE {

/// The lines with which a log file begins, and those with which each process begins its part of a file.
struct LogBanner {
  std::wstring program;       ///< file name of the executable
  bool debugEnabled = false;  ///< the debug file is written
  bool callerWrites = false;  ///< there is no writer thread

  /// Returns the lines for a file that LogRotation::prepare has just opened.
  /// \param first  whether the process has not written to this kind of file yet.
  std::string lines(LineMaker& maker, LogRotation::Opened opened, bool first) const;

 private:
  std::wstring startedText(std::uint32_t processId) const;
};

}  // namespace CORE
