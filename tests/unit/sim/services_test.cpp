#include <gtest/gtest.h>

#include "tests/sim/windows.h"

namespace {

using platform::current;

TEST(SimDigests, AreThePlatformsAlgorithms) {
  struct Row {
    const wchar_t* algorithm;
    std::string key;
    std::string expected;
  };
  // FIPS 180-4 and RFC 1321 examples for "abc"; the keyed one by another implementation.
  const Row rows[] = {{L"SHA256", "", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
                      {L"MD5", "", "900150983cd24fb0d6963f7d28e17f72"},
                      {L"SHA256", "key", "9c196e32dc0175f86f4b1cb89289d6619de6bee699e4c378e68309ed97a1a6ab"}};
  for (const Row& row : rows) {
    sim::Windows windows;
    platform::AlgorithmProvider provider;
    const std::uint32_t flags = row.key.empty() ? 0 : platform::kBcryptAlgHandleHmacFlag;
    ASSERT_EQ(current().digests.BCryptOpenAlgorithmProvider(provider, row.algorithm, flags), 0);
    std::vector<std::byte> digest(row.expected.size() / 2);
    std::vector<std::byte> object(sim::Digests::kObjectLength);
    platform::HashHandle hash;  // dies before its object
    const auto key = std::as_bytes(std::span(row.key));
    EXPECT_LT(current().digests.BCryptCreateHash(provider.get(), hash, std::span(object).first(9), key), 0);
    ASSERT_EQ(current().digests.BCryptCreateHash(provider.get(), hash, object, key), 0);
    EXPECT_EQ(current().digests.BCryptHashData(hash.get(), std::as_bytes(std::span("abc", 3))), 0);
    EXPECT_EQ(current().digests.BCryptFinishHash(hash.get(), digest), 0);
    std::string text;
    for (const std::byte value : digest) {
      text += "0123456789abcdef"[std::to_integer<int>(value) >> 4];
      text += "0123456789abcdef"[std::to_integer<int>(value) & 15];
    }
    EXPECT_EQ(text, row.expected);
  }
}

TEST(SimProcesses, CommandLinesSplitAsWindowsDoes) {
  using Texts = std::vector<std::wstring>;
  const std::vector<std::pair<std::wstring, Texts>> rows = {
      {L"\"C:\\a b\\p.exe\" -url https://h/?a=b&c", {L"C:\\a b\\p.exe", L"-url", L"https://h/?a=b&c"}},
      {L"p \"a b\"c d", {L"p", L"a bc", L"d"}},
      {L"p a\\\\b c\\\\\"d e\"", {L"p", L"a\\\\b", L"c\\d e"}},
      {L"p a\\\"b \"\" x", {L"p", L"a\"b", L"", L"x"}},
  };
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(sim::splitCommandLine(text), expected) << testing::PrintToString(text);
  }
}

TEST(SimInternet, UrlsSplitAsThePlatformSplitsThem) {
  using Parts = std::tuple<platform::ErrorCode, std::wstring, int, std::wstring, std::wstring>;
  const std::vector<std::pair<std::wstring, Parts>> rows = {
      {L"https://h.net/c/b?sv=1&sig=a%2B", {0, L"h.net", 443, L"/c/b", L"?sv=1&sig=a%2B"}},
      {L"HTTP://user:pw@h:8080", {0, L"h", 8080, L"", L""}},
      {L"https://[::1]:44/x#f", {0, L"[::1]", 44, L"/x", L"#f"}},
      {L"ftp://h/", {12006, L"", 0, L"", L""}},
      {L"https:///x", {12005, L"", 0, L"", L""}},
      {L"https://h:99999/", {12005, L"", 0, L"", L""}}};
  for (const auto& [url, expected] : rows) {
    const auto got = sim::splitUrl(url);
    EXPECT_EQ(Parts(got.error, got.value.host, got.value.port, got.value.path, got.value.extra), expected)
        << testing::PrintToString(url);
  }
}

}  // namespace
