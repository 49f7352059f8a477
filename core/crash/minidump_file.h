#pragma once

#include <string>

#include "core/crash/crash_settings.h"
#include "platform/crash.h"

namespace CORE {

/// The outcome of writeMinidump.
struct MinidumpOutcome {
  bool written = false;
  std::wstring text;  ///< the path of the dump, or the reason why there is none
};

/// Writes a minidump of this process: "mdDCT-YYYY-MM-DD-HHMMSS-PID.dmp" by local time. While it is being written,
/// ".partial" stands behind that name. Makes the folder when it is missing, and room in it: removes this program's
/// oldest dumps. The dumps of other programs are counted but stay. Crash::loadDbgHelp must have succeeded. One thread
/// at a time.
/// \param info  the exception that the dump describes; null: the dump describes the process without an exception.
/// \throws what the library throws when memory runs out.
MinidumpOutcome writeMinidump(const CrashSettings& settings, const platform::CrashInfo* info);

}  // namespace CORE
