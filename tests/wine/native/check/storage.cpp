#include <windows.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <vector>

#include "packaging/version.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/security.h"
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

void searchAndLock() {
  platform::Files& files = platform::current().files;
  files.CreateDirectoryW(L"found");
  for (const wchar_t* const name : {L"found\\A-12.txt", L"found\\A-1.txt", L"found\\b-12.txt"}) {
    const auto file = files.CreateFileW(name, platform::kGenericWrite, 0, platform::kCreateNew, 0);
    files.WriteFile(file.value.get(), std::as_bytes(std::span("12345", 5)));
  }
  equal(files.CreateFileW(L"found\\A-1.txt", platform::kGenericWrite, 0, platform::kCreateNew, 0).error,
        ERROR_FILE_EXISTS, "files: a new file is not made over another");
  platform::FoundFile found;
  const auto search = files.FindFirstFileW(L"found\\a-??.txt", found);
  that(search.ok && found.name == L"A-12.txt" && found.size == 5 && !found.isFolder &&
           files.FindNextFileW(search.value.get(), found).error == platform::kErrorNoMoreFiles,
       "files: a search finds what matches, and ends");
  that(files.MoveFileExW(L"found\\A-1.txt", L"found\\c", 0).ok && files.DeleteFileW(L"found\\c").ok &&
           files.DeleteFileW(L"found\\c").error == platform::kErrorFileNotFound,
       "files: a file is renamed and deleted");
  constexpr std::uint64_t kFar = 0x4000000000000000;
  const auto access = platform::kFileAppendData | platform::kFileReadData;
  const auto open = [&] {
    return files.CreateFileW(L"lock.txt", access, platform::kFileShareAll, platform::kOpenAlways, 0);
  };
  const auto first = open();
  const auto second = open();
  that(files.LockFileEx(first.value.get(), kFar).ok && files.WriteFile(second.value.get(), {}).ok &&
           files.LockFileEx(second.value.get(), kFar).error == platform::kErrorLockViolation &&
           files.UnlockFileEx(first.value.get(), kFar).ok && files.LockFileEx(second.value.get(), kFar).ok,
       "files: a byte is locked by one handle at a time");
  ULARGE_INTEGER whole{};
  ::GetDiskFreeSpaceExW(L".", nullptr, &whole, nullptr);
  const auto free = files.GetDiskFreeSpaceExW(L".");
  that(free.ok && free.value > 0 && free.value <= whole.QuadPart, "files: the disk's free space");
}

void protectedFolder() {
  platform::Security& security = platform::current().security;
  const auto descriptor =
      security.ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
  that(descriptor.ok && platform::current().files.CreateDirectoryW(L"protected", descriptor.value.get()).ok,
       "security: a folder is made with a descriptor from its text");
  std::array<std::byte, 512> memory{};
  DWORD needed = 0;
  ::GetFileSecurityW(L"protected", DACL_SECURITY_INFORMATION, memory.data(), memory.size(), &needed);
  ACL* entries = nullptr;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  ::GetSecurityDescriptorDacl(memory.data(), &present, &entries, &defaulted);
  that(present && entries != nullptr && entries->AceCount == 2, "security: and has its two entries");
}

void version() {
  platform::System& system = platform::current().system;
  const std::wstring path = system.GetModuleFileNameW().value;
  std::vector<std::byte> block(system.GetFileVersionInfoSizeW(path).value);
  const bool read = system.GetFileVersionInfoW(path, block).ok;
  const auto languages = system.VerQueryValueW(block, L"\\VarFileInfo\\Translation");
  const auto text = system.VerQueryValueW(block, L"\\StringFileInfo\\040904b0\\FileVersion");
  constexpr std::uint16_t kLanguages[] = {0x0409, 0x04B0};
  constexpr wchar_t kVersion[] = L"" MDDCT_VERSION_TEXT;
  that(read && std::ranges::equal(languages.value, std::as_bytes(std::span(kLanguages))) &&
           std::ranges::equal(text.value, std::as_bytes(std::span(kVersion))),
       "system: the program's version, with its terminator");
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
  const auto writing = registry.RegCreateKeyExW(platform::RegistryRoot::kLocalMachine, kKey, platform::kKeySetValue);
  const auto opened = registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, kKey, kRead);
  const platform::NativeHandle key = opened.value.get();
  for (const auto& [name, type, data] : values) {
    // The call takes a terminator that stands right behind the data as forgotten, and adds it.
    std::vector<BYTE> written = data;
    written.insert(written.end(), 2, 0xFF);
    registry.RegSetValueExW(writing.value.get(), name, type, std::as_bytes(std::span(written).first(data.size())));
    const auto asked = registry.RegQueryValueExW(key, name, {});
    std::vector<std::byte> buffer(data.size());
    const auto read = registry.RegQueryValueExW(key, name, buffer);
    that(asked.ok && asked.value.type == type && asked.value.size == data.size() && read.ok &&
             std::ranges::equal(buffer, std::as_bytes(std::span(data))),
         "registry: " + native::narrow(name) + ", type, size and data");
  }
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
  searchAndLock();
  protectedFolder();
  registry();
  version();
  system();
}

}  // namespace check
