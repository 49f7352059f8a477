#include "core/log/log_settings.h"

#include <algorithm>

#include "core/base/exception.h"
#include "core/settings/configuration.h"
#include "core/text/number_text.h"
#include "core/text/text.h"

namespace CORE {
namespace {

/// Every key with its default.
constexpr std::wstring_view kDefaults[] = {
    L"logEnabled=true",
    L"debugEnabled=true",
    L"traceEnabled=false",
    L"eventEnabled=true",
    L"legacyRedactEnabled=true",
    L"DeveloperMachine=false",
    L"DiskThresholdForLogAndEventsMB=200",
    L"truncateProcIdThreadId=false",
    L"readActiveTimeBiasFromRegistry=false",
    L"msgQueueSizeThreshold=150000",
    L"batchLogMessageCount=10",
    L"FileNameBase=log",
    L"DebugNameBase=debug",
    L"MaxDebugLogs=10",
    L"MaxDaysKept=7",
    L"InactivityTimeoutSeconds=120",
    L"MaxDebugLogSizeMB=",             // kept: no default of its own
    L"LogDelayNotificationTreshold=",  // kept: spelled so, and no default of its own
};

std::wstring settingName(std::wstring_view valueName) {
  return std::wstring(kProductKey).append(L"\\Log\\").append(valueName);
}

}  // namespace

LogSettings::LogSettings() {
  for (const std::wstring_view entry : kDefaults) {
    const std::size_t equals = entry.find(L'=');
    values_.emplace(entry.substr(0, equals), entry.substr(equals + 1));
  }
}

LogSettings LogSettings::read() {
  LogSettings out;
  for (auto& [key, value] : out.values_) {
    value = readSetting(settingName(key), value);
  }
  out.folder_ = readSetting(settingName(L"LogFileDirectory"), L"");
  out.consoleWanted_ = readSettingBool(std::wstring(kProductKey) + L"\\sysMessageToConsole", false);
  out.userModePrograms_ = readSetting(settingName(L"userModeLogPrograms"), L"");
  return out;
}

std::uint32_t LogSettings::readNumber(std::wstring_view key) {
  LogSettings out;
  out.values_.find(key)->second = readSetting(settingName(key), out.text(key));
  return out.number(key);
}

bool LogSettings::readFlag(std::wstring_view valueName) { return readSettingBool(settingName(valueName), false); }

std::wstring LogSettings::keyPath() { return std::wstring(kProductKey.substr(kProductKey.find(L'\\') + 1)) + L"\\Log"; }

bool LogSettings::isUserModeProgram(std::wstring_view program) const {
  std::wstring list = userModePrograms_;
  std::replace(list.begin(), list.end(), L',', L';');
  const auto names = splitText(list, L';');
  return std::any_of(names.begin(), names.end(),
                     [program](const std::wstring& name) { return equalText(trimmed(name), program, true); });
}

const std::wstring& LogSettings::text(std::wstring_view key) const {
  const auto found = values_.find(key);
  if (found == values_.end()) {
    throw coreException(L"LogSettings::text(): unknown key " + std::wstring(key));
  }
  return found->second;
}

bool LogSettings::flag(std::wstring_view key) const { return textToBool(text(key)); }

std::uint32_t LogSettings::number(std::wstring_view key) const {
  const std::uint32_t value = textToUint32(text(key));
  return value != 0 ? value : textToUint32(LogSettings().text(key));
}

}  // namespace CORE
