#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "core/settings/setting_names.h"

namespace CORE {

/// The logger's settings: what the product's key says below "HKLM\Software\Calvera\Meridon\Log" or as a policy of it.
/// Each field has the default of its value until read() fills it. A number that is 0 or no number in the registry
/// counts as its default; a number without a default is then 0.
struct LogSettings {
  // Which records are made, and where they go.
  bool logEnabled = kLogEnabled.defaultFlag();      ///< the log file is written: INFO and above
  bool debugEnabled = kDebugEnabled.defaultFlag();  ///< the debug file is written, from DEBUG on
  bool traceEnabled = kTraceEnabled.defaultFlag();  ///< the debug file is written, from TRACE on
  bool eventEnabled = kEventEnabled.defaultFlag();  ///< INFO and above are made even when no file is written
  bool sysMessageToConsole = kSysMessageToConsole.defaultFlag();        ///< a value of the product's key itself
  std::wstring logFileDirectory = kLogFileDirectory.defaultText;        ///< as configured; empty: not configured
  std::wstring userModeLogPrograms = kUserModeLogPrograms.defaultText;  ///< see isUserModeProgram

  // The lines.
  bool legacyRedactEnabled = kLegacyRedactEnabled.defaultFlag();
  bool truncateProcIdThreadId = kTruncateProcIdThreadId.defaultFlag();
  bool readActiveTimeBiasFromRegistry = kReadActiveTimeBiasFromRegistry.defaultFlag();
  /// Ticks (milliseconds) between a record and its writing, above which the delay follows the line; 0: it never does.
  std::uint32_t logDelayNotificationTreshold = kLogDelayNotificationTreshold.defaultNumber();

  // The queue.
  std::uint32_t msgQueueSizeThreshold = kMsgQueueSizeThreshold.defaultNumber();  ///< records that may wait
  std::uint32_t batchLogMessageCount = kBatchLogMessageCount.defaultNumber();    ///< lines of one write to a file
  bool developerMachine = kDeveloperMachine.defaultFlag();  ///< one line a write, whatever that says

  // The files.
  std::wstring fileNameBase = kFileNameBase.defaultText;
  std::wstring debugNameBase = kDebugNameBase.defaultText;
  std::uint32_t maxDebugLogs = kMaxDebugLogs.defaultNumber();            ///< files of each base name
  std::uint32_t maxDaysKept = kMaxDaysKept.defaultNumber();              ///< days since a file was begun
  std::uint32_t maxDebugLogSizeMB = kMaxDebugLogSizeMB.defaultNumber();  ///< MiB of one file; 0: no limit
  std::uint32_t inactivityTimeoutSeconds = kInactivityTimeoutSeconds.defaultNumber();
  std::uint32_t diskThresholdForLogAndEventsMB = kDiskThresholdForLogAndEventsMB.defaultNumber();  ///< MiB free

  /// Reads the registry: readSetting for each field.
  /// \throws coreException("OutOfMem") and nothing else. Any thread.
  static LogSettings read();

  /// Reads one number by the rule above.
  /// \throws coreException("OutOfMem") and nothing else. Any thread.
  static std::uint32_t readNumber(const Setting& setting);

  /// Whether userModeLogPrograms lists a program: file names separated by ";" or ",", compared in any case.
  bool isUserModeProgram(std::wstring_view program) const;
};

}  // namespace CORE
