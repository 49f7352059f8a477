#include "dct/agent_paths.h"

#include "core/base/local_time.h"
#include "core/format/format.h"
#include "core/log/log_folder.h"
#include "core/settings/configuration.h"
#include "core/settings/environment.h"
#include "core/text/path_text.h"
#include "platform/platform.h"

namespace {

/// The expansion leaves a variable that is not set in the text as it was written.
bool isSet(const wchar_t* variable) {
  const std::wstring value = CORE::expandEnvironment(variable).value_or(L"");
  return !value.empty() && value != variable;
}

}  // namespace

std::wstring agentInstallPath() { return CORE::readSetting(CORE::kAgentInstallPath); }

std::wstring agentLoggingFolder() {
  if (CORE::readSettingBool(CORE::kUseRegistryForLoggingPath)) {
    const std::wstring configured = CORE::readSetting(CORE::kLogFileDirectory);
    const std::wstring_view folder = CORE::withoutTrailingSeparators(configured);
    if (!folder.empty()) {
      return std::wstring(folder);
    }
  }
  if (isSet(L"%ProgramData%")) {
    return std::wstring(CORE::withoutTrailingSeparators(CORE::defaultLogFolder()));
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
