#include <gtest/gtest.h>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"
#include "upload/digest/base64.h"
#include "upload/digest/hash_generator.h"

namespace {

using namespace std::literals;

// The decoder validates nothing; what it makes of every kind of bad text is fixed. The bytes were worked out by hand
// from the six bits of each character, all ones for a character outside the alphabet. Good text: see the fuzz target.
TEST(Base64, WhatBadTextDecodesTo) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"\x67", "Z"},
      {"f", "Zg"},
      {"fooba", "Zm9vYmE"},
      {"f", "Zg==Zg=="},
      {"fo", "Zm8=Zg=="},
      {"\xFF", "===="},             // no padding in the first two places
      {"fo\xFD\xBF", "Zm 9v"},      // the blank counts, the last group is one character
      {"foo", "\xDA\xED\xB9\xF6"},  // the top bit of a character does not count
      {"\0\x0F\xC0"sv, "AA-A"},
      {"\0\0\xFF"sv, "AAA\0"sv}};
  for (const auto& [bytes, text] : rows) {
    CORE::mstr output("what stood here before");
    base64Decode(text, output);
    EXPECT_EQ(output.str(), bytes) << text;
    EXPECT_FALSE(output.isSecret());
  }
  constexpr std::string_view kForUrls = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text = "what stood here before";
  CORE::mstr bytes;
  base64Encode("\xFB\xFF", text, kForUrls);
  base64Decode("-_8=", bytes, base64TableOf(kForUrls));
  EXPECT_EQ(text + bytes.str(), "-_8=\xFB\xFF");
}

// FIPS 180-2 (appendix B), RFC 1321 (A.5), and the second test cases of RFC 4231 and RFC 2202.
const std::string kSha256OfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
const std::string kMd5OfAbc = "900150983cd24fb0d6963f7d28e17f72";
const std::string kQuestion = "what do ya want for nothing?";
const std::string kSha256OfQuestionByJefe = "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843";
const std::string kMd5OfQuestionByJefe = "750c783e6ab0b503eaa86e310a5db738";

class HashGeneratorTest : public ::testing::Test {
 protected:
  ~HashGeneratorTest() override {
    EXPECT_EQ(windows.openHandlesText(), openBefore);
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
  }
  static std::string hashed(HashGenerator& generator, std::string_view data, std::string_view key) {
    std::string text = "before";
    generator.HashAndFormat(data, key, HashOutputFormat::HexLower, text);
    return text;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  const std::string openBefore = windows.openHandlesText();
  const std::size_t countBefore = windows.openHandles();
};

TEST_F(HashGeneratorTest, KnownAnswersAndProvidersThatAreReopened) {
  // The algorithm, whether it is keyed, how often a provider was opened by then.
  const std::tuple<std::uint32_t, bool, std::size_t, std::string> rows[] = {
      {1, true, 1, kSha256OfQuestionByJefe}, {0, true, 1, kSha256OfQuestionByJefe},
      {2, true, 2, kMd5OfQuestionByJefe},    {2, false, 3, kMd5OfAbc},
      {7, false, 4, kSha256OfAbc},           {7, false, 5, kSha256OfAbc},
      {1, false, 5, kSha256OfAbc},  // kept: what 7 opened was recorded as 1
  };
  HashGenerator generator;
  for (const auto& [algorithm, keyed, opened, digest] : rows) {
    generator.SetAlgorithm(algorithm, keyed);
    EXPECT_EQ(windows.faults.callCount("BCryptOpenAlgorithmProvider"), opened);
    EXPECT_EQ(windows.openHandles() - countBefore, 1U);
    EXPECT_EQ(hashed(generator, keyed ? kQuestion : "abc", keyed ? "Jefe" : ""), digest);
  }
  EXPECT_EQ(log.count(L"HashGenerator::SetAlgorithm(): Already opened the algorithm provider"), 2U);
}

TEST_F(HashGeneratorTest, KeysAndProvidersThatDoNotFit) {
  HashGenerator generator, unset, broken;
  generator.SetAlgorithm(1, true);
  EXPECT_EQ(hashed(generator, "data", ""), "");
  generator.SetAlgorithm(2, false);
  EXPECT_EQ(hashed(generator, "abc", "key"), kMd5OfAbc);
  EXPECT_EQ(hashed(unset, kQuestion, "Jefe"), kSha256OfQuestionByJefe);
  windows.faults.failAll("BCryptOpenAlgorithmProvider", 0xC0000017);
  broken.SetAlgorithm(2, false);
  EXPECT_EQ(hashed(broken, "abc", ""), "");
  const std::string keyIgnored = "WARN  HashGenerator::GenerateHash(): HMAC not selected, but key was given.\n";
  const std::string defaultsUsed = "WARN  HashGenerator::GenerateHash(): Hash algorithm not chosen, using defaults\n";
  const std::string failed = "ERROR HashGenerator::SetAlgorithm(): BCryptOpenAlgorithmProvider failed: 0xc0000017\n";
  EXPECT_EQ(log.text(), "ERROR HashGenerator::GenerateHash(): Unable to perform HMAC without a key\n" + keyIgnored +
                            keyIgnored + defaultsUsed + failed + defaultsUsed + failed +
                            "ERROR HashGenerator::GenerateHash(): Failed to open algorithm provider\n");
}

TEST_F(HashGeneratorTest, EveryCallFailingInTurn) {
  const std::tuple<const char*, std::size_t, std::string, std::size_t> rows[] = {
      {"BCryptGetProperty", 1, "BCryptGetProperty (Object Length) failed: 0xc000009a", 0},
      {"HeapAlloc", 1, "HeapAlloc (Hash Object) failed", 0},
      {"BCryptGetProperty", 2, "BCryptGetProperty (Hash Length) failed: 0xc000009a", 0},
      {"BCryptCreateHash", 1, "BCryptCreateHash failed: 0xc000009a", 0},
      {"BCryptHashData", 1, "BCryptHashData failed: 0xc000009a", 0},
      {"BCryptFinishHash", 1, "BCryptFinishHash failed: 0xc000009a", 32},
  };
  HashGenerator generator;
  generator.SetAlgorithm(1, true);
  std::vector<std::byte> digest;
  for (const auto& [call, nth, message, digestSize] : rows) {
    digest.assign(5, std::byte{1});
    log.clear();
    windows.faults.failNth(call, nth, 0xC000009A);
    EXPECT_FALSE(generator.GenerateHash("data", "key", digest)) << call;
    EXPECT_EQ(log.text(), "ERROR HashGenerator::GenerateHash(): " + message + "\n");
    EXPECT_EQ(digest, std::vector<std::byte>(digestSize));
    EXPECT_EQ(windows.openHandles() - countBefore, 1U) << windows.openHandlesText();  // the provider stays open
  }
  log.clear();
  constexpr std::uint64_t kTooLong = 0x100000000;  // refused unread
  const std::byte one{};
  EXPECT_FALSE(generator.GenerateHash(&one, kTooLong, &one, 1, digest));
  EXPECT_FALSE(generator.GenerateHash(&one, 1, &one, kTooLong, digest));
  EXPECT_EQ(log.text(),
            "ERROR HashGenerator::GenerateHash(): BCryptHashData failed: 0xc000000d\n"
            "ERROR HashGenerator::GenerateHash(): BCryptCreateHash failed: 0xc000000d\n");
}

TEST_F(HashGeneratorTest, FormatsOfADigest) {
  const std::vector<std::byte> none, digest = {std::byte{0xAB}, std::byte{0x01}};
  const char* const texts[] = {"qwE=", "AB01", "AB:01", "ab01", "ab:01", ""};
  std::string text = "before";
  for (std::uint32_t format = 0; format < std::size(texts); ++format) {
    HashGenerator::FormatHash(digest, format, text);
    EXPECT_EQ(text, texts[format]);
  }
  EXPECT_EQ(log.text(), "ERROR HashGenerator::FormatHash(): Unrecognized output format\n");
  HashGenerator::FormatHash(none, HashOutputFormat::HexUpperColon, text);
  EXPECT_EQ(text, "");
}

}  // namespace
