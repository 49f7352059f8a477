#include "core/crash/crash_settings.h"

#include <algorithm>
#include <string_view>

#include "core/base/memory_guard.h"
#include "core/log/log_folder.h"
#include "core/settings/configuration.h"
#include "core/settings/environment.h"
#include "core/text/number_text.h"
#include "core/text/text.h"

namespace CORE {
namespace {

constexpr std::uint32_t kMaxDumps = 100;

std::wstring readText(std::wstring_view valueName) {
  return readSetting(std::wstring(kProductKey).append(L"\\Dump\\").append(valueName), L"");
}

std::uint32_t readNumber(std::wstring_view valueName, std::uint32_t defaultValue) {
  const std::wstring setting = readText(valueName);
  const std::wstring_view text = trimmed(setting);
  return !text.empty() && text[0] >= L'0' && text[0] <= L'9' ? textToUint32(text) : defaultValue;
}

std::wstring defaultFolder() {
  std::wstring folder = defaultLogFolder();
  return folder.empty() ? folder : folder.substr(0, folder.find_last_of(L"\\/") + 1) + L"dumps";
}

std::wstring readFolder() {
  std::wstring folder = readText(L"DumpFolder");
  if (auto expanded = expandEnvironment(folder)) {  // a plain string may name variables too
    folder = std::move(*expanded);
  }
  folder.resize(folder.find_last_not_of(L"\\/") + 1);
  return folder.empty() ? defaultFolder() : folder;
}

}  // namespace

CrashSettings CrashSettings::read() {
  return guardMemory([] {
    CrashSettings out;
    out.dumpCount = std::min(readNumber(L"DumpCount", out.dumpCount), kMaxDumps);
    out.dumpType = readNumber(L"DumpType", out.dumpType);
    out.dumpFolder = readFolder();
    return out;
  });
}

}  // namespace CORE
