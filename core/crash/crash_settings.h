#pragma once

#include <cstdint>
#include <string>

#include "platform/crash.h"

namespace CORE {

/// What the product's key says about minidumps, below "HKLM\Software\Calvera\Meridon\Dump" or as a policy of it.
struct CrashSettings {
  /// "DumpCount": how many dumps the folder keeps, those of all programs together; at most 100. 0: none is written.
  std::uint32_t dumpCount = 5;
  /// "DumpType": what a dump holds, a MINIDUMP_TYPE.
  std::uint32_t dumpType = platform::kMiniDumpWithDataSegs;
  /// "DumpFolder", without a separator at its end; by default "dumps" where the folder of the log files is by default.
  /// Empty when there is no such place.
  std::wstring dumpFolder;

  /// Reads the registry. A number may be decimal, or hexadecimal with "0x"; what does not begin with a digit counts as
  /// not set. coreException("OutOfMem") is the only exception; any thread.
  static CrashSettings read();
};

}  // namespace CORE
