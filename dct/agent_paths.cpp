#include "dct/agent_paths.h"

#include "core/base/local_time.h"
#include "core/format/format.h"
#include "core/log/log_folder.h"
#include "core/settings/configuration.h"
#include "core/settings/environment.h"
#include "platform/platform.h"

namespace {

std::wstring productSetting(const wchar_t* name) { return std::wstring(CORE::kProductKey) + name; }

std::wstring withoutTrailingSeparators(std::wstring path) {
  path.erase(path.find_last_not_of(L"\\/") + 1);
  return path;
}

/// The expansion leaves a variable that is not set in the text as it was written.
bool isSet(const wchar_t* variable) {
  const std::wstring value = CORE::expandEnvironment(variable).value_or(L"");
  return !value.empty() && value != variable;
}

}  // namespace

std::wstring agentInstallPath() { return CORE::readSetting(productSetting(L"\\Agent\\AgentInstallPath"), L""); }

std::wstring agentLoggingFolder() {
  if (CORE::readSettingBool(productSetting(L"\\Agent\\UseRegistryForLoggingPath"), false)) {
    std::wstring chosen = CORE::readSetting(productSetting(L"\\Log\\LogFileDirectory"), L"");
    chosen = withoutTrailingSeparators(std::move(chosen));
    if (!chosen.empty()) {
      return chosen;
    }
  }
  if (isSet(L"%ProgramData%")) {
    return withoutTrailingSeparators(CORE::defaultLogFolder());
  }
  if (isSet(L"%LOCALAPPDATA%")) {
    return CORE::expandEnvironment(L"%LOCALAPPDATA%\\vdx-sdct").value_or(L"");
  }
  return {};
}

std::wstring newBundlePath(const std::wstring& folder) {
  const platform::SystemTime now = CORE::localTimeNow();
  return folder + L"\\agentDCT_" + CORE::format(L"%04d%c%02d%c%02d", now.year, L'-', now.month, L'-', now.day) + L"_" +
         CORE::format(L"%02d%c%02d%c%02d", now.hour, L'-', now.minute, L'-', now.second) +
         CORE::format(L"%c%03d", L'_', now.milliseconds) + L".zip";
}
