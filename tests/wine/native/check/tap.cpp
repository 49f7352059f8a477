#include "tests/wine/native/check/tap.h"

#include <windows.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "tests/wine/native/arguments.h"

namespace check {
namespace {

int count = 0;
int failures = 0;

}  // namespace

bool that(bool passed, std::string_view name) {
  failures += passed ? 0 : 1;
  std::printf("%sok %d - %.*s\n", passed ? "" : "not ", ++count, static_cast<int>(name.size()), name.data());
  std::fflush(stdout);
  return passed;
}

bool equal(std::uint64_t got, std::uint64_t wanted, std::string_view name) {
  if (!that(got == wanted, name)) {
    note("got " + std::to_string(got) + ", wanted " + std::to_string(wanted));
    return false;
  }
  return true;
}

bool equal(const std::wstring& got, const std::wstring& wanted, std::string_view name) {
  if (!that(got == wanted, name)) {
    note("got \"" + native::narrow(got) + "\", wanted \"" + native::narrow(wanted) + "\"");
    return false;
  }
  return true;
}

void skip(std::string_view name, std::string_view reason) {
  std::printf("ok %d - %.*s # SKIP %.*s\n", ++count, static_cast<int>(name.size()), name.data(),
              static_cast<int>(reason.size()), reason.data());
}

void note(const std::string& text) {
  std::printf("# %s\n", text.c_str());
  std::fflush(stdout);
}

int finish() {
  std::printf("1..%d\n", count);
  return failures == 0 ? 0 : 1;
}

const std::wstring& scratchFolder() {
  static const std::wstring folder = [] {
    std::array<wchar_t, MAX_PATH + 1> temporary{};
    ::GetTempPathW(static_cast<DWORD>(temporary.size()), temporary.data());
    std::wstring path = std::wstring(temporary.data()) + L"platform_check_" + std::to_wstring(::GetCurrentProcessId());
    std::filesystem::create_directories(path);
    return path;
  }();
  return folder;
}

void removeScratchFolder() {
  std::error_code error;
  std::filesystem::remove_all(scratchFolder(), error);
}

}  // namespace check
