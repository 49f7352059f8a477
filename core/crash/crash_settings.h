#pragma once

#include <cstdint>
#include <string>

#include "core/settings/setting_names.h"

namespace CORE {

/// The settings of minidumps: what the product's key says below "HKLM\Software\Calvera\Meridon\Dump" or as a policy of
/// it. Each field has the default of its value until read() fills it.
struct CrashSettings {
  /// Dumps that the folder keeps, those of all programs together; at most 100. 0: none is written.
  std::uint32_t dumpCount = kDumpCount.defaultNumber();
  /// What a dump holds, a MINIDUMP_TYPE; by default MiniDumpWithDataSegs.
  std::uint32_t dumpType = kDumpType.defaultNumber();
  /// kDumpFolder without a separator at its end; by default "dumps" where the folder of the log files is by default.
  /// Empty when there is no such place.
  std::wstring dumpFolder;

  /// Reads the registry. A number may be decimal, or hexadecimal with "0x". A text that does not begin with a digit
  /// counts as not set. Any thread.
  /// \throws coreException("OutOfMem") and nothing else.
  static CrashSettings read();
};

}  // namespace CORE
