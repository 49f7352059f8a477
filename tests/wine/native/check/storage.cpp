#include <windows.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <vector>

#include "platform/files.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/system.h"
#include "tests/wine/native/arguments.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

constexpr const wchar_t* kKey = L"Software\\Calvera\\Meridon\\Platform Check";
constexpr std::uint32_t kRead = platform::kKeyQueryValue | platform::kKeyWow64_64Key;

platform::Result<platform::KernelHandle> openForAppend(const std::wstring& path) {
  return platform::current().files.CreateFileW(path, platform::kFileAppendData, platform::kFileShareAll,
                                               platform::kOpenAlways, platform::kFileAttributeNormal);
}

void sharedAppending() {
  platform::Files& files = platform::current().files;
  const auto first = openForAppend(L"log.txt");
  const auto second = openForAppend(L"log.txt");
  const std::string_view texts[] = {"one,", "two,", "three"};
  for (std::size_t i = 0; i < 3; ++i) {
    files.WriteFile((i == 1 ? second : first).value.get(), std::as_bytes(std::span(texts[i])));
  }
  const auto reader = files.CreateFileW(L"log.txt", platform::kGenericRead, platform::kFileShareAll,
                                        platform::kOpenExisting, platform::kFileFlagSequentialScan);
  std::array<std::byte, 64> buffer{};
  const auto read = files.ReadFile(reader.value.get(), buffer);
  that(std::string_view(reinterpret_cast<const char*>(buffer.data()), read.value) == "one,two,three",
       "files: two writers share a file, and every write goes to the end");
  const auto atEnd = files.ReadFile(reader.value.get(), buffer);
  that(atEnd.ok && atEnd.value == 0, "files: reading at the end succeeds with nothing");
  std::error_code error;
  that(files.GetFileSizeEx(reader.value.get()).value == 13 && files.file_size(L"log.txt", error) == 13,
       "files: size by handle and by name");
  DWORD flags = HANDLE_FLAG_INHERIT;
  ::GetHandleInformation(first.value.get(), &flags);
  equal(flags & HANDLE_FLAG_INHERIT, 0, "files: an open file is not inheritable");
  that(files.remove("log.txt", error) && !error, "files: an open file that shares its deletion is removed");
}

void fileFailures() {
  platform::Files& files = platform::current().files;
  that(files.CreateDirectoryW(L"folder").ok && files._waccess(L"folder", 0) == 0 && files._waccess(L"none", 0) == -1,
       "files: a folder is made and seen");
  equal(files.CreateDirectoryW(L"folder").error, platform::kErrorAlreadyExists, "files: an existing folder says so");
  equal(files.CreateDirectoryW(L"none\\b").error, platform::kErrorPathNotFound, "files: a missing parent says so");
  const auto opened = files.CreateFileW(L"missing.txt", platform::kGenericRead, 0, platform::kOpenExisting, 0);
  that(!opened.ok && !opened.value && opened.error == platform::kErrorFileNotFound,
       "files: a missing file is not opened");
  std::error_code error;
  that(files.file_size(L"missing.txt", error) == static_cast<std::uintmax_t>(-1) &&
           error.value() == ERROR_FILE_NOT_FOUND,
       "files: a missing file has no size");
  error.clear();
  that(!files.remove("missing.txt", error) && !error, "files: a missing file is not removed, without error");
  const HANDLE held = ::CreateFileW(L"held.zip", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  that(!files.remove("held.zip", error) && error.value() == ERROR_SHARING_VIOLATION,
       "files: a file in use stays, with the system's error number");
  ::CloseHandle(held);
}

void registry() {
  struct Value {
    std::wstring name;
    std::uint32_t type;
    std::vector<BYTE> data;
  };
  const Value values[] = {
      {L"text", platform::kRegSz, {'a', 0, 0xAC, 0x20, 0, 0}},  // "a" and the euro sign, terminated
      {L"unterminated text", platform::kRegSz, {'a', 0, 'b', 0}},
      {L"empty text", platform::kRegSz, {}},
      {L"several texts", platform::kRegMultiSz, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}},
      {L"number", platform::kRegDword, {0x78, 0x56, 0x34, 0x12}},
      {L"bytes", platform::kRegBinary, {0xFF, 0, 0x80}},
  };
  platform::Registry& registry = platform::current().registry;
  HKEY writing = nullptr;
  ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &writing, nullptr);
  const auto opened = registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, kKey, kRead);
  const platform::NativeHandle key = opened.value.get();
  for (const auto& [name, type, data] : values) {
    // The call takes a terminator that stands right behind the data as forgotten, and adds it.
    std::vector<BYTE> written = data;
    written.insert(written.end(), 2, 0xFF);
    ::RegSetValueExW(writing, name.c_str(), 0, type, written.data(), static_cast<DWORD>(data.size()));
    const auto asked = registry.RegQueryValueExW(key, name, {});
    std::vector<std::byte> buffer(data.size());
    const auto read = registry.RegQueryValueExW(key, name, buffer);
    that(asked.ok && asked.value.type == type && asked.value.size == data.size() && read.ok &&
             std::ranges::equal(buffer, std::as_bytes(std::span(data))),
         "registry: " + native::narrow(name) + ", type, size and data");
  }
  ::RegCloseKey(writing);
  std::array<std::byte, 3> small{};
  const auto shortRead = registry.RegQueryValueExW(key, L"number", small);
  that(!shortRead.ok && shortRead.error == platform::kErrorMoreData && shortRead.value.size == 4,
       "registry: a short buffer gives the size needed");
  equal(registry.RegQueryValueExW(key, L"missing", {}).error, platform::kErrorFileNotFound,
        "registry: a missing value");
  const auto missing = registry.RegOpenKeyExW(platform::RegistryRoot::kCurrentUser, kKey, kRead);
  that(!missing.ok && missing.error == platform::kErrorFileNotFound && !missing.value,
       "registry: the user's own hive is not the machine's");
  const auto hive = registry.RegOpenCurrentUser(kRead);
  that(hive.ok && registry.RegOpenKeyExW(hive.value.get(), L"Software", kRead).ok,
       "registry: a key in the hive of the impersonated user");
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey);
}

// A DLL is looked up beside the program, and no longer once the search is limited.
void system() {
  platform::System& system = platform::current().system;
  const std::filesystem::path folder = std::filesystem::path(system.GetModuleFileNameW().value).parent_path();
  std::filesystem::copy_file(system.GetSystemDirectoryW().value + L"\\version.dll", folder / L"planted.dll",
                             std::filesystem::copy_options::overwrite_existing);
  const HMODULE found = ::LoadLibraryW(L"planted.dll");
  ::FreeLibrary(found);
  that(system.SetDefaultDllDirectories(platform::kLoadLibrarySearchSystem32).ok && found != nullptr &&
           ::LoadLibraryW(L"planted.dll") == nullptr,
       "system: a DLL beside the program is not loaded once the search is limited");
  std::filesystem::remove(folder / L"planted.dll");
}

}  // namespace

void storage() {
  sharedAppending();
  fileFailures();
  registry();
  system();
}

}  // namespace check
