#include <gtest/gtest.h>

#include <cstring>

#include "tests/sim/windows.h"

namespace {

using platform::current;

std::string hex(std::span<const std::byte> bytes) {
  std::string text;
  for (const std::byte value : bytes) {
    text += "0123456789abcdef"[std::to_integer<int>(value) >> 4];
    text += "0123456789abcdef"[std::to_integer<int>(value) & 15];
  }
  return text;
}

TEST(SimRegistry, ValuesAreFoundWithoutCaseAndInTheirSizes) {
  sim::Windows windows;
  windows.registry.set(L"HKLM\\Software\\One\\Name", L"ab");
  windows.registry.set(L"HKCU\\Software\\One\\Number", 0x01020304u);
  const auto key = current().registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, L"SOFTWARE\\one", 0x101);
  ASSERT_TRUE(key.ok);
  const auto asked = current().registry.RegQueryValueExW(key.value.get(), L"NAME", {});
  EXPECT_TRUE(asked.ok);
  EXPECT_EQ(asked.value.type, platform::kRegSz);
  EXPECT_EQ(asked.value.size, 6u);
  std::byte buffer[6];
  EXPECT_EQ(current().registry.RegQueryValueExW(key.value.get(), L"Name", std::span(buffer).first(5)).error,
            platform::kErrorMoreData);
  EXPECT_TRUE(current().registry.RegQueryValueExW(key.value.get(), L"Name", buffer).ok);
  EXPECT_EQ(hex(buffer), "610062000000");
  EXPECT_EQ(current().registry.RegQueryValueExW(key.value.get(), L"Other", {}).error, platform::kErrorFileNotFound);

  const auto hive = current().registry.RegOpenCurrentUser(1);
  const auto below = current().registry.RegOpenKeyExW(hive.value.get(), L"Software\\One", 1);
  EXPECT_TRUE(current().registry.RegQueryValueExW(below.value.get(), L"Number", std::span(buffer).first(4)).ok);
  EXPECT_EQ(hex(std::span(buffer).first(4)), "04030201");
  EXPECT_FALSE(current().registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, L"Software\\Two", 1).ok);
  EXPECT_EQ(windows.registry.openings().front().access, 0x101u);
  EXPECT_EQ(windows.registry.queries().back(), L"HKCU\\Software\\One\\Number");
}

TEST(SimFiles, OpenFilesOutliveTheirNamesAndChangeUnderneath) {
  sim::Windows windows;
  windows.files.writeSparse(L"C:\\big\\file.zip", std::uint64_t{5} << 30);
  const auto file = current().files.CreateFileW(L"c:/BIG/file.zip", platform::kGenericRead, 7, 3, 0);
  ASSERT_TRUE(file.ok);
  EXPECT_EQ(current().files.GetFileSizeEx(file.value.get()).value, std::uint64_t{5} << 30);
  std::vector<std::byte> buffer(70000);
  EXPECT_EQ(current().files.ReadFile(file.value.get(), buffer).value, 70000u);
  EXPECT_EQ(buffer[69999], sim::Files::sparseByte(69999));
  windows.files.resize(L"C:\\big\\file.zip", 70010);
  std::error_code error;
  EXPECT_TRUE(current().files.remove("C:\\big\\file.zip", error));
  EXPECT_EQ(current().files.ReadFile(file.value.get(), buffer).value, 10u);
  EXPECT_EQ(current().files.ReadFile(file.value.get(), buffer).value, 0u);
  EXPECT_FALSE(current().files.remove("C:\\big\\file.zip", error));
  EXPECT_FALSE(error);
}

TEST(SimFiles, FoldersNeedTheirParentsAndLogsAreAppended) {
  sim::Windows windows;
  EXPECT_EQ(current().files.CreateDirectoryW(L"C:\\a\\b").error, platform::kErrorPathNotFound);
  EXPECT_TRUE(current().files.CreateDirectoryW(L"C:\\a").ok);
  EXPECT_EQ(current().files.CreateDirectoryW(L"C:\\A\\").error, platform::kErrorAlreadyExists);
  for (int i = 0; i < 2; ++i) {
    const auto log =
        current().files.CreateFileW(L"C:\\a\\log.txt", platform::kFileAppendData, 7, platform::kOpenAlways, 0);
    current().files.WriteFile(log.value.get(), std::as_bytes(std::span("line", 4)));
  }
  EXPECT_EQ(windows.files.read(L"C:\\a\\log.txt"), "lineline");
  std::error_code error;
  EXPECT_FALSE(current().files.remove("C:\\a", error)) << "not empty";
  EXPECT_TRUE(error);
  EXPECT_EQ(windows.files.list(L"c:\\A"), std::vector<std::wstring>{L"C:\\a\\log.txt"});
  windows.files.write(L"C:\\a\\\u00e9", "");
  EXPECT_TRUE(current().files.remove("C:\\a\\\xC3\xA9", error));
  windows.files.ansiIsLatin1 = true;
  windows.files.write(L"C:\\a\\\u00e9", "");
  EXPECT_FALSE(current().files.remove("C:\\a\\\xC3\xA9", error));
  EXPECT_TRUE(current().files.remove("C:\\a\\\xE9", error));
}

TEST(SimSecurity, TheAccountIsTheOneSet) {
  for (const bool system : {true, false}) {
    sim::Windows windows;
    windows.security.localSystem = system;
    const auto token = current().security.OpenProcessToken(current().processes.GetCurrentProcess(), 8);
    const auto size = current().security.GetTokenInformation(token.value.get(), platform::kTokenUser, {});
    EXPECT_EQ(size.error, platform::kErrorInsufficientBuffer);
    std::vector<std::byte> buffer(size.value);
    ASSERT_TRUE(current().security.GetTokenInformation(token.value.get(), platform::kTokenUser, buffer).ok);
    platform::TokenUser user{};
    std::memcpy(&user, buffer.data(), sizeof(user));
    const auto sid = current().security.AllocateAndInitializeSid(platform::kSecurityNtAuthority,
                                                                 std::array{platform::kSecurityLocalSystemRid});
    EXPECT_EQ(current().security.EqualSid(user.sid, sid.value.get()), system);
  }
}

TEST(SimText, MessagesVariablesAndCase) {
  sim::Windows windows;
  wchar_t buffer[64];
  EXPECT_EQ(current().text.FormatMessageW(platform::kFormatMessageFromSystem, nullptr, 5, buffer).value, 12u);
  EXPECT_STREQ(buffer, L"Message 5.\r\n");
  const auto module = current().system.GetModuleHandleW(L"WinHttp.dll");
  current().text.FormatMessageW(platform::kFormatMessageFromModule, module, 12029, buffer);
  EXPECT_STREQ(buffer, L"WinHTTP message 12029.\r\n");
  windows.text.setUnknown(77);
  EXPECT_EQ(current().text.FormatMessageW(platform::kFormatMessageFromSystem, nullptr, 77, buffer).value, 0u);
  EXPECT_EQ(current().text.ExpandEnvironmentStringsW(L"%SYSTEMROOT%\\%none%\\x", buffer).value, 20u);
  EXPECT_STREQ(buffer, L"C:\\Windows\\%none%\\x");
  EXPECT_EQ(current().text.CompareStringW(0, platform::kNormIgnoreCase, L"\u00c4b", L"\u00e4B"), platform::kCstrEqual);
  EXPECT_EQ(current().text.CompareStringW(0, 0, L"a", L"A"), 1);
  EXPECT_EQ(current().text.CompareStringA(0, 0, "b", "A"), 3);
}

TEST(SimDigests, AreThePlatformsAlgorithms) {
  struct Row {
    const wchar_t* algorithm;
    std::string key;
    const char* expected;
  };
  // FIPS 180-4 and RFC 1321 examples for "abc"; RFC 4231 case 2 style for the keyed ones.
  const Row rows[] = {{L"SHA256", "", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
                      {L"MD5", "", "900150983cd24fb0d6963f7d28e17f72"},
                      {L"SHA256", "key", "9c196e32dc0175f86f4b1cb89289d6619de6bee699e4c378e68309ed97a1a6ab"}};
  for (const Row& row : rows) {
    sim::Windows windows;
    platform::AlgorithmProvider provider;
    std::uint32_t length = 0;
    const std::uint32_t flags = row.key.empty() ? 0 : platform::kBcryptAlgHandleHmacFlag;
    ASSERT_EQ(current().digests.BCryptOpenAlgorithmProvider(provider, row.algorithm, flags), 0);
    ASSERT_EQ(current().digests.BCryptGetProperty(provider.get(), L"HashDigestLength", length), 0);
    std::vector<std::byte> digest(length);
    std::vector<std::byte> object(windows.digests.objectLength);
    platform::HashHandle hash;
    const auto key = std::as_bytes(std::span(row.key));
    EXPECT_LT(current().digests.BCryptCreateHash(provider.get(), hash, std::span(object).first(9), key), 0);
    ASSERT_EQ(current().digests.BCryptCreateHash(provider.get(), hash, object, key), 0);
    EXPECT_EQ(current().digests.BCryptHashData(hash.get(), std::as_bytes(std::span("abc", 3))), 0);
    EXPECT_LT(current().digests.BCryptFinishHash(hash.get(), std::span(digest).first(8)), 0);
    EXPECT_EQ(current().digests.BCryptFinishHash(hash.get(), digest), 0);
    EXPECT_EQ(hex(digest), row.expected);
  }
}

TEST(SimInternet, UrlsSplitAsThePlatformSplitsThem) {
  struct Row {
    const wchar_t* url;
    platform::ErrorCode error;
    const wchar_t* host;
    std::uint16_t port;
    const wchar_t* path;
    const wchar_t* extra;
  };
  const Row rows[] = {{L"https://h.net/c/b?sv=1&sig=a%2B", 0, L"h.net", 443, L"/c/b", L"?sv=1&sig=a%2B"},
                      {L"HTTP://user:pw@h:8080", 0, L"h", 8080, L"", L""},
                      {L"https://[::1]:44/x#f", 0, L"[::1]", 44, L"/x", L"#f"},
                      {L"https://h?q", 0, L"h", 443, L"", L"?q"},
                      {L"ftp://h/", 12006, L"", 0, L"", L""},
                      {L"h/x", 12006, L"", 0, L"", L""},
                      {L"https:///x", 12005, L"", 0, L"", L""},
                      {L"https://h:99999/", 12005, L"", 0, L"", L""}};
  sim::Windows windows;
  for (const Row& row : rows) {
    const auto parts = current().winHttp.WinHttpCrackUrl(row.url);
    EXPECT_EQ(parts.error, row.error) << testing::PrintToString(row.url);
    EXPECT_EQ(parts.value.host, row.host);
    EXPECT_EQ(parts.value.port, row.port);
    EXPECT_EQ(parts.value.path, row.path);
    EXPECT_EQ(parts.value.extra, row.extra);
  }
  EXPECT_EQ(current().internet.InternetCrackUrlW(L"https://h/a?b").value.path, L"/a?b");
  EXPECT_EQ(current().internet.IsValidURL(L"https://h/"), 0);
  EXPECT_NE(current().internet.IsValidURL(L"no url"), 0);
  EXPECT_NE(current().internet.IsValidURL(L""), 0);
}

TEST(SimClock, CountsDaysAndHours) {
  sim::Windows windows;
  windows.clock.biasMinutes = -60;
  const auto now = current().clock.GetSystemTimeAsFileTime();
  const auto local = current().clock.FileTimeToSystemTime(current().clock.FileTimeToLocalFileTime(now).value).value;
  EXPECT_EQ(local.hour, 5);
  EXPECT_EQ(local.dayOfWeek, 5);
  windows.clock.set(platform::SystemTime{2024, 2, 0, 29, 23, 59, 59, 999});
  EXPECT_EQ(current().clock._time64(), 1709251199);
  windows.clock.advance(1);
  EXPECT_EQ(current().clock.GetSystemTime().month, 3);
}

}  // namespace
