#include "core/log/log_settings.h"

#include <algorithm>

#include "core/settings/configuration.h"
#include "core/text/number_text.h"
#include "core/text/text.h"

namespace CORE {

LogSettings LogSettings::read() {
  LogSettings out;
  out.logEnabled = readSettingBool(kLogEnabled);
  out.debugEnabled = readSettingBool(kDebugEnabled);
  out.traceEnabled = readSettingBool(kTraceEnabled);
  out.eventEnabled = readSettingBool(kEventEnabled);
  out.sysMessageToConsole = readSettingBool(kSysMessageToConsole);
  out.logFileDirectory = readSetting(kLogFileDirectory);
  out.userModeLogPrograms = readSetting(kUserModeLogPrograms);

  out.legacyRedactEnabled = readSettingBool(kLegacyRedactEnabled);
  out.truncateProcIdThreadId = readSettingBool(kTruncateProcIdThreadId);
  out.readActiveTimeBiasFromRegistry = readSettingBool(kReadActiveTimeBiasFromRegistry);
  out.logDelayNotificationTreshold = readNumber(kLogDelayNotificationTreshold);

  out.msgQueueSizeThreshold = readNumber(kMsgQueueSizeThreshold);
  out.batchLogMessageCount = readNumber(kBatchLogMessageCount);
  out.developerMachine = readSettingBool(kDeveloperMachine);

  out.fileNameBase = readSetting(kFileNameBase);
  out.debugNameBase = readSetting(kDebugNameBase);
  out.maxDebugLogs = readNumber(kMaxDebugLogs);
  out.maxDaysKept = readNumber(kMaxDaysKept);
  out.maxDebugLogSizeMB = readNumber(kMaxDebugLogSizeMB);
  out.inactivityTimeoutSeconds = readNumber(kInactivityTimeoutSeconds);
  out.diskThresholdForLogAndEventsMB = readNumber(kDiskThresholdForLogAndEventsMB);
  return out;
}

std::uint32_t LogSettings::readNumber(const Setting& setting) {
  const std::uint32_t value = textToUint32(readSetting(setting));
  return value != 0 ? value : setting.defaultNumber();
}

bool LogSettings::isUserModeProgram(std::wstring_view program) const {
  std::wstring list = userModeLogPrograms;
  std::replace(list.begin(), list.end(), L',', L';');
  const auto names = splitText(list, L';');
  return std::any_of(names.begin(), names.end(),
                     [program](const std::wstring& name) { return equalText(trimmed(name), program, true); });
}

}  // namespace CORE
