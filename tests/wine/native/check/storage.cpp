#include <windows.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <vector>

#include "platform/files.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/security.h"
#include "platform/system.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

void lockAndShare() {
  platform::Files& files = platform::current().files;
  const auto file = files.CreateFileW(L"new.txt", platform::kGenericWrite, 0, platform::kCreateNew, 0);
  that(file.ok && files.CreateFileW(L"new.txt", platform::kGenericWrite, 0, platform::kCreateNew, 0).error ==
                      ERROR_FILE_EXISTS,
       "files: a new file is not made over another");
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
  DWORD flags = HANDLE_FLAG_INHERIT;
  ::GetHandleInformation(first.value.get(), &flags);
  that((flags & HANDLE_FLAG_INHERIT) == 0, "files: an open file is not inheritable");
  ULARGE_INTEGER whole{};
  ::GetDiskFreeSpaceExW(L".", nullptr, &whole, nullptr);
  const auto free = files.GetDiskFreeSpaceExW(L".");
  that(free.ok && free.value > 0 && free.value <= whole.QuadPart, "files: the disk's free space");
  const HANDLE held = ::CreateFileW(L"held.zip", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  std::error_code error;
  that(!files.remove("held.zip", error) && error.value() == ERROR_SHARING_VIOLATION,
       "files: a file in use stays, with the system's error number");
  ::CloseHandle(held);
}

void security() {
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

  // The launcher patches this comparison away, so that whole runs do not show that equal ones are.
  const std::uint32_t system[] = {platform::kSecurityLocalSystemRid};
  const std::uint32_t service[] = {platform::kSecurityLocalSystemRid + 1};
  const auto first = security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, system);
  const auto second = security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, system);
  const auto other = security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, service);
  that(first.ok && second.ok && security.EqualSid(first.value.get(), second.value.get()) &&
           !security.EqualSid(first.value.get(), other.value.get()),
       "security: equal identifiers are equal and others are not");
}

void registry() {
  constexpr const wchar_t* kKey = L"Software\\Calvera\\Meridon\\Platform Check";
  constexpr std::uint32_t kRead = platform::kKeyQueryValue | platform::kKeyWow64_64Key;
  platform::Registry& registry = platform::current().registry;
  const auto writing = registry.RegCreateKeyExW(platform::RegistryRoot::kLocalMachine, kKey, platform::kKeySetValue);
  const auto opened = registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, kKey, kRead);
  const platform::NativeHandle key = opened.value.get();
  // The call takes a terminator that stands right behind the data as forgotten, and adds it.
  const std::array<BYTE, 6> data = {'a', 0, 'b', 0, 0xFF, 0xFF};
  const auto text = std::as_bytes(std::span(data).first(4));
  registry.RegSetValueExW(writing.value.get(), L"text", platform::kRegSz, text);
  const auto asked = registry.RegQueryValueExW(key, L"text", {});
  std::vector<std::byte> buffer(text.size());
  that(asked.ok && asked.value.type == platform::kRegSz && asked.value.size == text.size() &&
           registry.RegQueryValueExW(key, L"text", buffer).ok && std::ranges::equal(buffer, text),
       "registry: unterminated text, type, size and data");
  const auto shortRead = registry.RegQueryValueExW(key, L"text", std::span(buffer).first(3));
  that(!shortRead.ok && shortRead.error == platform::kErrorMoreData && shortRead.value.size == 4,
       "registry: a short buffer gives the size needed");
  that(registry.RegOpenKeyExW(platform::RegistryRoot::kCurrentUser, kKey, kRead).error == platform::kErrorFileNotFound,
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
  lockAndShare();
  security();
  registry();
  system();
}

}  // namespace check
