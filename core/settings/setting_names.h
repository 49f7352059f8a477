#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Every registry value that the program reads or writes: its name and its default. tests/docs compares this list with
// the guide and with the policy templates. One constant stands for one value, written as one statement.

namespace CORE {

/// The product's key, below HKEY_LOCAL_MACHINE.
inline constexpr std::wstring_view kProductPath = L"Software\\Calvera\\Meridon";

/// A value of the product's key. readSetting and readSettingBool look it up, policies first.
struct Setting {
  const wchar_t* name;         ///< key path below the product's key, if any, and name of the value
  const wchar_t* defaultText;  ///< what the value counts as when it is not set; empty for a setting without a default

  /// The full name of the value: root, key path and value name.
  std::wstring path() const { return std::wstring(L"HKLM\\").append(kProductPath).append(L"\\").append(name); }
  /// The default of a switch.
  constexpr bool defaultFlag() const { return defaultText == std::wstring_view(L"true"); }
  /// The default of a number, whose text is decimal digits; 0 for a setting without a default.
  constexpr std::uint32_t defaultNumber() const {
    std::uint32_t number = 0;
    for (const wchar_t digit : std::wstring_view(defaultText)) {
      number = number * 10 + static_cast<std::uint32_t>(digit - L'0');
    }
    return number;
  }
};

/// A value outside the product's key, by its full name. No policy counts for it.
struct ForeignValue {
  const wchar_t* path;
};

// --- Policies

/// Switch: whether the former maker's policies count. readConfig itself reads it: below the product's policy key, then
/// below the product's key, and nowhere else.
inline constexpr Setting kFallbackToLegacyGPO{L"FallbackToLegacyGPO", L"true"};

// --- The agent

/// Text: the folder in which the agent is installed. The installer sets it.
inline constexpr Setting kAgentInstallPath{L"Agent\\AgentInstallPath", L""};
/// Switch: makes kLogFileDirectory the folder below which the bundle is made, too.
inline constexpr Setting kUseRegistryForLoggingPath{L"Agent\\UseRegistryForLoggingPath", L"false"};

// --- The upload and its certificates

/// Text: proxies for the upload, "host:port" or a list as WinHTTP takes it.
inline constexpr Setting kProxyServer{L"Node Manager\\HTTP Proxy Server", L""};
/// Text: hosts that are reached without kProxyServer, separated by ";".
inline constexpr Setting kProxyBypass{L"Node Manager\\HTTP Proxy Bypass", L""};
/// Text: the URL of a PAC file.
inline constexpr Setting kProxyAutoConfigUrl{L"Node Manager\\HTTP Proxy Auto Config URL", L""};
/// Switch: leaves the revocation check to Windows where the program would download the CRLs itself.
inline constexpr Setting kDisableManualCRLCheck{L"Node Manager\\DisableManualCRLCheck", L"false"};

// --- The log: which records are made, and where they go

/// Switch: writes the log file (INFO and above).
inline constexpr Setting kLogEnabled{L"Log\\logEnabled", L"true"};
/// Switch: writes the debug file, from DEBUG on.
inline constexpr Setting kDebugEnabled{L"Log\\debugEnabled", L"true"};
/// Switch: writes the debug file, from TRACE on.
inline constexpr Setting kTraceEnabled{L"Log\\traceEnabled", L"false"};
/// Switch: records of INFO and above are made even when no file is written.
inline constexpr Setting kEventEnabled{L"Log\\eventEnabled", L"true"};
/// Switch: shows records of INFO and above in the console of the process that started the program.
inline constexpr Setting kSysMessageToConsole{L"sysMessageToConsole", L"false"};
/// Text: the folder of the log files; defaultLogFolder() when it is not set.
inline constexpr Setting kLogFileDirectory{L"Log\\LogFileDirectory", L""};
/// Text: file names of programs, separated by ";" or ",", that log below %LOCALAPPDATA% without kLogFileDirectory.
inline constexpr Setting kUserModeLogPrograms{L"Log\\userModeLogPrograms", L""};

// --- The log: its lines. A number that is 0 counts as not set, here and in the two groups that follow.

/// Switch: shows the legacy word as "***" in every line.
inline constexpr Setting kLegacyRedactEnabled{L"Log\\legacyRedactEnabled", L"true"};
/// Switch: shows process and thread ids by their low 16 bits.
inline constexpr Setting kTruncateProcIdThreadId{L"Log\\truncateProcIdThreadId", L"false"};
/// Switch: the time zone of the lines comes from kActiveTimeBias, not from the platform's conversion.
inline constexpr Setting kReadActiveTimeBiasFromRegistry{L"Log\\readActiveTimeBiasFromRegistry", L"false"};
/// Number of milliseconds: a record that is written later than that is followed by its delay.
/// kept: spelled so, and without a default of its own.
inline constexpr Setting kLogDelayNotificationTreshold{L"Log\\LogDelayNotificationTreshold", L""};

// --- The log: its queue

/// Number of records that may wait to be written; further ones are dropped.
inline constexpr Setting kMsgQueueSizeThreshold{L"Log\\msgQueueSizeThreshold", L"150000"};
/// Number of lines of one write to a file.
inline constexpr Setting kBatchLogMessageCount{L"Log\\batchLogMessageCount", L"10"};
/// Switch: each line is written by itself, whatever kBatchLogMessageCount says.
inline constexpr Setting kDeveloperMachine{L"Log\\DeveloperMachine", L"false"};

// --- The log: its files

/// Text: the name of the log files, before the date.
inline constexpr Setting kFileNameBase{L"Log\\FileNameBase", L"log"};
/// Text: the name of the debug files, before the date.
inline constexpr Setting kDebugNameBase{L"Log\\DebugNameBase", L"debug"};
/// Number of files of each name that are kept.
inline constexpr Setting kMaxDebugLogs{L"Log\\MaxDebugLogs", L"10"};
/// Number of days for which a file is kept after it was begun.
inline constexpr Setting kMaxDaysKept{L"Log\\MaxDaysKept", L"7"};
/// Number of MiB at which a new file is begun. kept: without a default of its own, which means without a limit.
inline constexpr Setting kMaxDebugLogSizeMB{L"Log\\MaxDebugLogSizeMB", L""};
/// Number of seconds without a record after which the files are closed.
inline constexpr Setting kInactivityTimeoutSeconds{L"Log\\InactivityTimeoutSeconds", L"120"};
/// Number of MiB of free space below which nothing is logged.
inline constexpr Setting kDiskThresholdForLogAndEventsMB{L"Log\\DiskThresholdForLogAndEventsMB", L"200"};
/// Switch that the program itself writes: on while the volume is too full to log.
inline constexpr Setting kLoggedThresholdReached{L"Log\\loggedThresholdReached", L""};

// --- Minidumps. A number that is 0 counts as 0.

/// Number of dumps that the folder may hold, those of all programs together; 0 switches dumps off.
inline constexpr Setting kDumpCount{L"Dump\\DumpCount", L"5"};
/// Number, a MINIDUMP_TYPE: what a dump holds.
inline constexpr Setting kDumpType{L"Dump\\DumpType", L"1"};
/// Text: the folder of the dumps.
inline constexpr Setting kDumpFolder{L"Dump\\DumpFolder", L""};

// --- Windows' own

/// REG_DWORD, signed minutes: UTC = local time + bias.
inline constexpr ForeignValue kActiveTimeBias{
    L"HKLM\\SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation\\ActiveTimeBias"};

}  // namespace CORE
