#pragma once

#include <string>

#include "core/crash/crash_settings.h"
#include "platform/crash.h"

namespace CORE {

/// What became of a minidump.
struct MinidumpOutcome {
  bool written = false;
  std::wstring text;  ///< its path, or why there is none
};

/// Writes a minidump of this process, "mdDCT-YYYY-MM-DD-HHMMSS-PID.dmp" by local time, which has that name only once it
/// is whole; before, ".partial" stands behind it. Makes the folder, and room in it first: this program's oldest dumps
/// go; what other programs keep there is only counted. Needs Crash::loadDbgHelp.
/// \param info  null: of the process as it is, without an exception.
/// Throws when memory runs out; one thread at a time.
MinidumpOutcome writeMinidump(const CrashSettings& settings, const platform::CrashInfo* info);

}  // namespace CORE
