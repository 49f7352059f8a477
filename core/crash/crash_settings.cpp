#include "core/crash/crash_settings.h"

#include <algorithm>
#include <string_view>

#include "core/base/memory_guard.h"
#include "core/log/log_folder.h"
#include "core/settings/configuration.h"
#include "core/settings/environment.h"
#include "core/text/number_text.h"
#include "core/text/path_text.h"
#include "core/text/text.h"
#include "platform/crash.h"

namespace CORE {
namespace {

constexpr std::uint32_t kMaxDumps = 100;

static_assert(kDumpType.defaultNumber() == platform::kMiniDumpWithDataSegs);

std::uint32_t readNumber(const Setting& setting) {
  const std::wstring found = readSetting(setting);
  const std::wstring_view text = trimmed(found);
  return !text.empty() && text[0] >= L'0' && text[0] <= L'9' ? textToUint32(text) : setting.defaultNumber();
}

std::wstring defaultFolder() {
  std::wstring folder = defaultLogFolder();
  return folder.empty() ? folder : folder.substr(0, folder.find_last_of(L"\\/") + 1) + L"dumps";
}

std::wstring readFolder() {
  std::wstring folder = readSetting(kDumpFolder);
  if (auto expanded = expandEnvironment(folder)) {  // a REG_SZ may name variables, too
    folder = std::move(*expanded);
  }
  folder.resize(withoutTrailingSeparators(folder).size());
  return folder.empty() ? defaultFolder() : folder;
}

}  // namespace

CrashSettings CrashSettings::read() {
  return guardMemory([] {
    CrashSettings out;
    out.dumpCount = std::min(readNumber(kDumpCount), kMaxDumps);
    out.dumpType = readNumber(kDumpType);
    out.dumpFolder = readFolder();
    return out;
  });
}

}  // namespace CORE
