#include "core/log_settings.h"

#include "core/configuration.h"
#include "core/exception.h"
#include "core/number_text.h"
#include "core/text.h"

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
  return out;
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
