// platform_check FOLDER
//
// Checks the Windows layer against the Windows that it runs on, service by service, and reports in the Test Anything
// Protocol. FOLDER is an empty folder to work in. Leaves out what the runs of the shipped program and of the HTTPS
// client already show.

#include <windows.h>

// After windows.h, which it needs.
#include <wincrypt.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string>

#include "platform/certificates.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/security.h"
#include "platform/system.h"
#include "platform/windows/windows_platform.h"
#include "platform/winhttp.h"
#include "tests/wine/programs/check/tap.h"
#include "upload/digest/hash_generator.h"
#include "wine/native/arguments.h"

namespace check {
namespace {

int count = 0;
int failures = 0;

// RFC 4231, test case 2. Digests without a key are tested as thumbprints, in trust.test.mjs.
void digests() {
  HashGenerator generator;
  generator.SetAlgorithm(HashAlgorithm::kSha256, true);
  std::string text;
  generator.HashAndFormat("what do ya want for nothing?", "Jefe", HashOutputFormat::HexLower, text);
  that(text == "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843", "digests: HMAC-SHA-256");
}

void certificates() {
  std::array<char, 4> text{};
  const auto bytes = std::as_writable_bytes(std::span(text));
  for (const std::string_view given : {"YWJj", "-----BEGIN X-----\r\nYWJj\r\n-----END X-----"}) {
    const auto size =
        platform::current().certificates.CryptStringToBinaryA(given, platform::kCryptStringBase64Any, bytes);
    that(size.value == 3 && std::string_view(text.data(), 3) == "abc",
         "certificates: decoded " + std::string(given, 0, 10));
  }
  that(reinterpret_cast<std::uintptr_t>(CERT_CHAIN_POLICY_SSL) == platform::kChainPolicySsl,
       "certificates: CERT_CHAIN_POLICY_SSL has the right number");
}

void urls() {
  using namespace std::string_literals;
  const auto cracked = platform::current().winHttp.WinHttpCrackUrl(L"https://user:word@h:1/a\0b?c"s);
  that(cracked && cracked.value.host == L"h" && cracked.value.path == L"/a\0b"s && cracked.value.extra == L"?c",
       "urls: all of it counts, also behind a null character");
}

void files() {
  platform::Files& files = platform::current().files;
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
       "files: one handle at a time locks a byte");
}

void security() {
  platform::Security& security = platform::current().security;
  const auto descriptor =
      security.ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
  platform::current().files.CreateDirectoryW(L"protected", descriptor.value.get());
  std::array<std::byte, 512> memory{};
  DWORD needed = 0;
  ::GetFileSecurityW(L"protected", DACL_SECURITY_INFORMATION, memory.data(), memory.size(), &needed);
  ACL* entries = nullptr;
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  ::GetSecurityDescriptorDacl(memory.data(), &present, &entries, &defaulted);
  that(present && entries != nullptr && entries->AceCount == 2,
       "security: a new folder has the two entries of its descriptor");

  // The launcher patches EqualSid, so whole runs do not show that it compares correctly.
  const auto identifier = [&](std::uint32_t number) {
    return security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, {&number, 1}).value;
  };
  const auto system = identifier(platform::kSecurityLocalSystemRid);
  that(security.EqualSid(system.get(), identifier(platform::kSecurityLocalSystemRid).get()) &&
           !security.EqualSid(system.get(), identifier(platform::kSecurityLocalSystemRid + 1).get()),
       "security: EqualSid tells equal identifiers from others");
}

void registry() {
  constexpr const wchar_t* kKey = L"Software\\Calvera\\Meridon\\Platform Check";
  constexpr std::uint32_t kRead = platform::kKeyQueryValue | platform::kKeyWow64_64Key;
  platform::Registry& registry = platform::current().registry;
  const auto writing = registry.RegCreateKeyExW(platform::RegistryRoot::kLocalMachine, kKey, platform::kKeySetValue);
  const auto opened = registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, kKey, kRead);
  // RegSetValueEx adds a terminator that stands right behind the data, so other bytes stand there.
  const std::array<BYTE, 6> data = {'a', 0, 'b', 0, 0xFF, 0xFF};
  const auto text = std::as_bytes(std::span(data).first(4));
  registry.RegSetValueExW(writing.value.get(), L"text", platform::kRegSz, text);
  std::array<std::byte, 4> buffer{};
  const auto cut = registry.RegQueryValueExW(opened.value.get(), L"text", std::span(buffer).first(3));
  const auto read = registry.RegQueryValueExW(opened.value.get(), L"text", buffer);
  that(!cut.ok && cut.error == platform::kErrorMoreData && cut.value.size == 4 && read.ok && read.value.size == 4 &&
           read.value.type == platform::kRegSz && std::ranges::equal(buffer, text),
       "registry: unterminated text, and the size needed when the buffer is short");
  const auto hive = registry.RegOpenCurrentUser(kRead);
  that(hive.ok && registry.RegOpenKeyExW(hive.value.get(), L"Software", kRead).ok,
       "registry: a key in the hive of the impersonated user");
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey);
}

// Windows searches the folder of the program for a DLL, until the search is limited.
void system() {
  platform::System& system = platform::current().system;
  const std::filesystem::path folder = std::filesystem::path(system.GetModuleFileNameW().value).parent_path();
  std::filesystem::copy_file(system.GetSystemDirectoryW().value + L"\\version.dll", folder / L"planted.dll",
                             std::filesystem::copy_options::overwrite_existing);
  const HMODULE found = ::LoadLibraryW(L"planted.dll");
  ::FreeLibrary(found);
  that(system.SetDefaultDllDirectories(platform::kLoadLibrarySearchSystem32).ok && found != nullptr &&
           ::LoadLibraryW(L"planted.dll") == nullptr,
       "system: a DLL beside the program is not loaded after the search has been limited");
  std::filesystem::remove(folder / L"planted.dll");
}

}  // namespace

void that(bool passed, std::string_view name) {
  failures += passed ? 0 : 1;
  std::printf("%sok %d - %s\n", passed ? "" : "not ", ++count, std::string(name).c_str());
  std::fflush(stdout);
}

}  // namespace check

int main() {
  platform::install(&platform::windowsPlatform());
  std::filesystem::current_path(native::arguments().at(0));
  for (const auto part : {check::digests, check::certificates, check::urls, check::files, check::security,
                          check::registry, check::system, check::crash}) {
    part();
  }
  std::printf("1..%d\n", check::count);
  return check::failures == 0 ? 0 : 1;
}
