#include <windows.h>

#include <algorithm>
#include <filesystem>

#include "platform/platform.h"
#include "platform/system.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

bool endsWithIgnoringCase(std::wstring text, const std::wstring& end) {
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t c) { return c < 128 ? std::towlower(c) : c; });
  return text.ends_with(end);
}

}  // namespace

void system() {
  platform::System& system = platform::current().system;
  that(endsWithIgnoringCase(system.GetSystemDirectoryW().value, L"\\system32"), "system: the system folder");
  that(std::filesystem::exists(system.GetModuleFileNameW().value), "system: the program's own path");
  that(system.GetModuleHandleW(L"kernel32.dll") == ::GetModuleHandleW(L"kernel32.dll") &&
           system.GetModuleHandleW(L"no_such.dll") == nullptr,
       "system: modules by name");

  const std::filesystem::path before = std::filesystem::current_path();
  that(system.SetCurrentDirectoryW(scratchFolder()).ok &&
           std::filesystem::equivalent(std::filesystem::current_path(), scratchFolder()),
       "system: the current folder changes");
  that(!system.SetCurrentDirectoryW(scratchFolder() + L"\\none").ok, "system: but not to a missing one");
  system.SetCurrentDirectoryW(before.wstring());

  // A DLL is looked up beside the program, and no longer once the search is limited.
  const std::wstring planted = std::filesystem::path(system.GetModuleFileNameW().value).parent_path() / L"planted.dll";
  std::filesystem::copy_file(system.GetSystemDirectoryW().value + L"\\version.dll", planted,
                             std::filesystem::copy_options::overwrite_existing);
  const HMODULE found = ::LoadLibraryW(L"planted.dll");
  ::FreeLibrary(found);
  that(system.SetDefaultDllDirectories(platform::kLoadLibrarySearchSystem32).ok && found != nullptr &&
           ::LoadLibraryW(L"planted.dll") == nullptr,
       "system: a DLL beside the program is not loaded once the search is limited");
  std::filesystem::remove(planted);
}

}  // namespace check
