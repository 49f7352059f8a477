#include <gtest/gtest.h>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"
#include "upload/digest/base64.h"
#include "upload/digest/hash_generator.h"
#include "upload/digest/percent_decoding.h"

namespace {

using namespace std::literals;

std::string encoded(std::string_view bytes, std::string_view alphabet = kBase64Alphabet) {
  std::string text = "what stood here before";
  base64Encode(bytes, text, alphabet);
  return text;
}

CORE::mstr decoded(const CORE::mstr& text) {
  CORE::mstr output("what stood here before");
  base64Decode(text, output);
  return output;
}

TEST(Base64, KnownAnswersBothWays) {
  const std::string_view texts[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};  // RFC 4648, 10
  for (std::size_t i = 0; i < std::size(texts); ++i) {
    EXPECT_EQ(encoded("foobar"sv.substr(0, i)), texts[i]);
    EXPECT_EQ(decoded(texts[i]).str(), "foobar"sv.substr(0, i));
  }
  const std::string_view ends = "\0\0\0\xFF\xFF\xFF\xFB\xEF\xBE\0"sv;
  EXPECT_EQ(encoded(ends), "AAAA////++++AA==");
  EXPECT_EQ(decoded("AAAA////++++AA==").str(), ends);
  EXPECT_EQ(encoded("\xFB\xFF", "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"), "-_8=");
}

// The decoder validates nothing; what it makes of every kind of bad text is fixed. The bytes were worked out by hand
// from the six bits of each character, all ones for a character outside the alphabet.
TEST(Base64, WhatBadTextDecodesTo) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"\x67", "Z"},                  // 011001, then the two top bits of -1
      {"f", "Zg"},                    //
      {"fooba", "Zm9vYmE"},           //
      {"f", "Zg==Zg=="},              // padding ends the text
      {"fo", "Zm8=Zg=="},             //
      {"\xFF", "===="},               // no padding in the first two places
      {"\x66\x6F\xFD\xBF", "Zm 9v"},  // the blank counts as -1, the last group is one character
      {"foo", "\xDA\xED\xB9\xF6"},    // the top bit of a character does not count
      {"\x00\x0F\xC0"sv, "AA-A"},     //
      {"\x00\x00\xFF"sv, "AAA\0"sv},  // -1 fills the byte of the fourth place
  };
  for (const auto& [bytes, text] : rows) {
    EXPECT_EQ(decoded(text).str(), bytes) << text;
  }
}

TEST(Base64, SecretTextGivesSecretBytes) {
  CORE::mstr secret(std::string(400, 'A'));
  EXPECT_FALSE(decoded(secret).isSecret());
  secret.markSecret();
  EXPECT_TRUE(decoded(secret).isSecret());
  EXPECT_EQ(decoded(secret).length(), 300U);
}

TEST(PercentDecoding, EscapesAndWhatIsLeftAlone) {
  EXPECT_EQ(percentDecode("a%2Cb+c-_~ %2B+%2b %41%6a%6A%7e%fF %zz %0g%g0 %00x %+1+ %%41 %2541 50%4", true),
            "a,b c-_~ + + Ajj~\xFF %zz %0g%g0 %00x %+1  %%41 %41 50%4");
  EXPECT_EQ(percentDecode("%2C+%2b%+1+%", false), ",++%+1+%");
}

// FIPS 180-2 (appendix B), RFC 1321 (A.5), and the second test cases of RFC 4231 and RFC 2202.
const std::string kSha256OfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
const std::string kMd5OfAbc = "900150983cd24fb0d6963f7d28e17f72";
const std::string kQuestion = "what do ya want for nothing?";
const std::string kSha256OfQuestionByJefe = "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843";
const std::string kDefaultsUsed = "WARN  HashGenerator::GenerateHash(): Hash algorithm not chosen, using defaults\n";

class HashGeneratorTest : public ::testing::Test {
 protected:
  ~HashGeneratorTest() override {
    EXPECT_EQ(windows.openHandlesText(), openBefore);
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
  }

  static std::string hashed(HashGenerator& generator, std::string_view data, std::string_view key) {
    std::string text;
    EXPECT_TRUE(generator.HashAndFormat(data, key, HashOutputFormat::HexLower, text));
    return text;
  }

  std::string logged() {
    std::string text = log.text();
    log.clear();
    return text;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  const std::string openBefore = windows.openHandlesText();
  const std::size_t countBefore = windows.openHandles();
};

TEST_F(HashGeneratorTest, KnownAnswers) {
  const std::tuple<std::uint32_t, std::string, std::string, std::string> rows[] = {
      {0, "", "abc", kSha256OfAbc},
      {7, "", "abc", kSha256OfAbc},
      {1, "", "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {2, "", "abc", kMd5OfAbc},
      {1, "Jefe", kQuestion, kSha256OfQuestionByJefe},
      {2, "Jefe", kQuestion, "750c783e6ab0b503eaa86e310a5db738"},
  };
  HashGenerator generator;
  for (const auto& [algorithm, key, data, digest] : rows) {
    generator.SetAlgorithm(algorithm, !key.empty());
    EXPECT_EQ(hashed(generator, data, key), digest);
  }
}

TEST_F(HashGeneratorTest, ProviderIsReopenedOnlyForAnotherKnownAlgorithm) {
  struct Row {
    std::uint32_t algorithm;
    bool keyed;
    std::size_t opened;
  };
  const Row rows[] = {{1, true, 1},  {1, true, 1},  {0, true, 1}, {1, false, 2},
                      {5, false, 3}, {5, false, 4}, {1, false, 4}};  // what 5 opened was recorded as 1
  HashGenerator generator;
  for (const Row& row : rows) {
    generator.SetAlgorithm(row.algorithm, row.keyed);
    EXPECT_EQ(windows.faults.callCount("BCryptOpenAlgorithmProvider"), row.opened);
    EXPECT_EQ(windows.openHandles() - countBefore, 1U);
  }
  EXPECT_EQ(log.count(L"HashGenerator::SetAlgorithm(): Already opened the algorithm provider"), 3U);
}

TEST_F(HashGeneratorTest, KeysAndChoicesThatDoNotFit) {
  std::vector<std::byte> digest(3);
  HashGenerator generator;
  generator.SetAlgorithm(1, true);
  EXPECT_FALSE(generator.GenerateHash("data", "", digest));
  EXPECT_TRUE(digest.empty());
  EXPECT_EQ(logged(), "ERROR HashGenerator::GenerateHash(): Unable to perform HMAC without a key\n");
  generator.SetAlgorithm(2, false);
  EXPECT_EQ(hashed(generator, "abc", "key"), kMd5OfAbc);
  const std::string keyIgnored = "WARN  HashGenerator::GenerateHash(): HMAC not selected, but key was given.\n";
  EXPECT_EQ(logged(), keyIgnored);
  HashGenerator unset;
  EXPECT_EQ(hashed(unset, kQuestion, "Jefe"), kSha256OfQuestionByJefe);
  EXPECT_EQ(logged(), keyIgnored + kDefaultsUsed);
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
    windows.faults.failNth(call, nth, 0xC000009A);
    EXPECT_FALSE(generator.GenerateHash("data", "key", digest)) << call;
    EXPECT_EQ(logged(), "ERROR HashGenerator::GenerateHash(): " + message + "\n");
    EXPECT_EQ(digest, std::vector<std::byte>(digestSize));
    EXPECT_EQ(windows.openHandles() - countBefore, 1U) << windows.openHandlesText();  // the provider stays open
  }
  constexpr std::uint64_t kTooLong = 0x100000000;  // refused unread
  const std::byte one{};
  EXPECT_FALSE(generator.GenerateHash(&one, kTooLong, &one, 1, digest));
  EXPECT_FALSE(generator.GenerateHash(&one, 1, &one, kTooLong, digest));
  EXPECT_EQ(logged(),
            "ERROR HashGenerator::GenerateHash(): BCryptHashData failed: 0xc000000d\n"
            "ERROR HashGenerator::GenerateHash(): BCryptCreateHash failed: 0xc000000d\n");
  EXPECT_EQ(hashed(generator, kQuestion, "Jefe"), kSha256OfQuestionByJefe);
}

TEST_F(HashGeneratorTest, ProviderThatCannotBeOpened) {
  windows.faults.failAll("BCryptOpenAlgorithmProvider", 0xC0000017);
  HashGenerator generator;
  generator.SetAlgorithm(2, false);
  std::string text = "before";
  EXPECT_FALSE(generator.HashAndFormat("abc", "", HashOutputFormat::Base64, text));
  EXPECT_EQ(text, "");
  const std::string failed = "ERROR HashGenerator::SetAlgorithm(): BCryptOpenAlgorithmProvider failed: 0xc0000017\n";
  EXPECT_EQ(logged(), failed + kDefaultsUsed + failed +
                          "ERROR HashGenerator::GenerateHash(): Failed to open algorithm provider\n");
  windows.faults.clear();
  EXPECT_EQ(hashed(generator, "abc", ""), kSha256OfAbc);
}

TEST_F(HashGeneratorTest, FormatsOfADigest) {
  const std::vector<std::byte> none, one = {std::byte{0x0F}}, two = {std::byte{0xAB}, std::byte{0x01}};
  const std::tuple<std::uint32_t, std::vector<std::byte>, const char*> rows[] = {
      {0, two, "qwE="}, {1, two, "AB01"}, {2, two, "AB:01"}, {3, two, "ab01"}, {4, two, "ab:01"}, {1, one, "0F"},
      {2, one, "0F"},   {4, one, "0f"},   {0, none, ""},     {2, none, ""},    {9, none, ""},     {9, two, ""}};
  for (const auto& [format, digest, expected] : rows) {
    std::string text = "before";
    HashGenerator::FormatHash(digest, format, text);
    EXPECT_EQ(text, expected);
  }
  EXPECT_EQ(logged(), "ERROR HashGenerator::FormatHash(): Unrecognized output format\n");
}

}  // namespace
