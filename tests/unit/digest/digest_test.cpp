#include <gtest/gtest.h>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"
#include "upload/digest/base64.h"
#include "upload/digest/hash_generator.h"

namespace {

using namespace std::literals;

// The decoder validates nothing, and what it makes of each kind of bad text is fixed. The bytes were worked out by hand
// from the six bits of each character, all ones for one outside the alphabet. The fuzz target checks good texts.
TEST(Base64, WhatBadTextDecodesTo) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"fooba", "Zm9vYmE"},        {"fo", "Zm8=Zg=="}, {"\xFF", "===="},  // no padding in the first two places
      {"fo\xFD\xBF", "Zm 9v"},      // the blank counts, the last group is one character
      {"foo", "\xDA\xED\xB9\xF6"},  // the top bit of a character does not count
      {"\0\0\xFF"sv, "AAA\0"sv}};
  for (const auto& [bytes, text] : rows) {
    CORE::mstr output("what was here before");
    base64Decode(text, output);
    EXPECT_EQ(output.str(), bytes) << text;
  }
}

// FIPS 180-2 (appendix B), RFC 1321 (A.5), and the second test case of RFC 4231.
const std::string kSha256OfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
const std::string kMd5OfAbc = "900150983cd24fb0d6963f7d28e17f72";
const std::string kQuestion = "what do ya want for nothing?";
const std::string kSha256OfQuestionByJefe = "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843";

struct HashGeneratorTest : testing::Test {
  ~HashGeneratorTest() override { EXPECT_EQ(windows.openHandlesText(), openBefore); }
  static std::string hashed(HashGenerator& generator, std::string_view data, std::string_view key) {
    std::string text = "before";
    generator.HashAndFormat(data, key, HashOutputFormat::HexLower, text);
    return text;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  const std::string openBefore = windows.openHandlesText();
};

TEST_F(HashGeneratorTest, KnownAnswersAndReopenedProviders) {
  // A name, the algorithm, whether it is keyed, data, key, how often a provider has been opened by then, the digest.
  const std::tuple<const char*, std::uint32_t, bool, std::string, std::string, std::size_t, std::string> rows[] = {
      {"SHA-256, keyed", 1, true, kQuestion, "Jefe", 1, kSha256OfQuestionByJefe},
      {"MD5 with a key too many", 2, false, "abc", "key", 2, kMd5OfAbc},
      {"an unknown number", 7, false, "abc", "", 3, kSha256OfAbc},
      {"that number again", 7, false, "abc", "", 4, kSha256OfAbc},
      {"SHA-256, as which the unknown one is recorded (kept)", 1, false, "abc", "", 4, kSha256OfAbc},
      {"the default, keyed as the open one is not", 0, true, kQuestion, "Jefe", 5, kSha256OfQuestionByJefe},
      {"keyed without a key", 0, true, kQuestion, "", 5, ""},
  };
  HashGenerator generator, unset;
  for (const auto& [name, algorithm, keyed, data, key, opened, digest] : rows) {
    generator.SetAlgorithm(algorithm, keyed);
    EXPECT_EQ(windows.faults.callCount("BCryptOpenAlgorithmProvider"), opened) << name;
    EXPECT_EQ(hashed(generator, data, key), digest) << name;
  }
  EXPECT_EQ(hashed(unset, kQuestion, "Jefe"), kSha256OfQuestionByJefe);
  EXPECT_EQ(log.count(L"HashGenerator::GenerateHash(): HMAC not selected, but key was given."), 2U);
  EXPECT_TRUE(log.has(CORE::kError, L"HashGenerator::GenerateHash(): Unable to perform HMAC without a key"));
  EXPECT_TRUE(log.has(CORE::kWarn, L"HashGenerator::GenerateHash(): Hash algorithm not chosen, using defaults"));
}

TEST_F(HashGeneratorTest, EachCallThatFails) {
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
    EXPECT_FALSE(generator.GenerateHash("data", "key", digest)) << message;
    EXPECT_EQ(log.text(), "ERROR HashGenerator::GenerateHash(): " + message + "\n");
    EXPECT_EQ(digest, std::vector<std::byte>(digestSize)) << message;
  }
  windows.faults.failAll("BCryptOpenAlgorithmProvider", 0xC0000017);
  EXPECT_FALSE(HashGenerator().GenerateHash("data", "", digest));
  EXPECT_TRUE(log.has(CORE::kError, L"HashGenerator::SetAlgorithm(): BCryptOpenAlgorithmProvider failed: 0xc0000017"));
}

}  // namespace
