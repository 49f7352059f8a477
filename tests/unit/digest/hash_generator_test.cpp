#include "upload/digest/hash_generator.h"

#include <gtest/gtest.h>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

using Lines = std::vector<sim::LogLine>;

sim::LogLine line(CORE::LogLevel level, const std::wstring& text) {
  return {level, L"HashGenerator::GenerateHash(): " + text};
}

std::string bytes(int value, std::size_t count) { return std::string(count, static_cast<char>(value)); }

class HashGeneratorTest : public ::testing::Test {
 protected:
  ~HashGeneratorTest() override {
    EXPECT_EQ(windows.openHandlesText(), openBefore);
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
  }

  static std::string hexOf(HashGenerator& generator, std::string_view data, std::string_view key) {
    std::string text;
    EXPECT_TRUE(generator.HashAndFormat(data, key, HashOutputFormat::HexLower, text));
    return text;
  }

  Lines logged() {
    Lines lines = log.lines();
    log.clear();
    return lines;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  const std::string openBefore = windows.openHandlesText();
  const std::size_t countBefore = windows.openHandles();
};

// FIPS 180-2 (appendix B) and its empty text; RFC 1321, A.5.
TEST_F(HashGeneratorTest, PlainKnownAnswers) {
  struct Row {
    std::uint32_t algorithm;
    std::string data, digest;
  };
  const Row rows[] = {
      {1, "", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {1, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {0, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {7, bytes('a', 1000000), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
      {2, "", "d41d8cd98f00b204e9800998ecf8427e"},
      {2, "abc", "900150983cd24fb0d6963f7d28e17f72"},
      {2, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
  };
  HashGenerator generator;
  for (const Row& row : rows) {
    generator.SetAlgorithm(row.algorithm, false);
    EXPECT_EQ(hexOf(generator, row.data, ""), row.digest);
  }
}

// RFC 4231, test cases 1, 2, 3, 4, 6 and 7; RFC 2202 for MD5.
TEST_F(HashGeneratorTest, KeyedKnownAnswers) {
  struct Row {
    std::uint32_t algorithm;
    std::string key, data, digest;
  };
  std::string counting;
  for (char c = 1; c <= 25; ++c) {
    counting += c;
  }
  const Row rows[] = {
      {1, bytes(0x0B, 20), "Hi There", "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
      {1, "Jefe", "what do ya want for nothing?", "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {1, bytes(0xAA, 20), bytes(0xDD, 50), "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
      {1, counting, bytes(0xCD, 50), "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
      {1, bytes(0xAA, 131), "Test Using Larger Than Block-Size Key - Hash Key First",
       "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
      {1, bytes(0xAA, 131),
       "This is a test using a larger than block-size key and a larger than block-size data. The key needs to be "
       "hashed before being used by the HMAC algorithm.",
       "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
      {2, "Jefe", "what do ya want for nothing?", "750c783e6ab0b503eaa86e310a5db738"},
  };
  HashGenerator generator;
  for (const Row& row : rows) {
    generator.SetAlgorithm(row.algorithm, true);
    EXPECT_EQ(hexOf(generator, row.data, row.key), row.digest);
  }
}

TEST_F(HashGeneratorTest, ProviderIsReopenedOnlyForAnotherKnownAlgorithm) {
  const auto opened = [this] { return windows.faults.callCount("BCryptOpenAlgorithmProvider"); };
  HashGenerator generator;
  generator.SetAlgorithm(1, true);
  generator.SetAlgorithm(1, true);
  EXPECT_EQ(logged(), Lines({{CORE::kTrace, L"HashGenerator::SetAlgorithm(): Already opened the algorithm provider"}}));
  generator.SetAlgorithm(0, true);
  EXPECT_EQ(opened(), 1U);
  generator.SetAlgorithm(1, false);
  EXPECT_EQ(opened(), 2U);
  log.clear();
  for (int i = 0; i < 2; ++i) {
    generator.SetAlgorithm(5, false);
  }
  EXPECT_EQ(opened(), 4U);
  EXPECT_TRUE(logged().empty());
  generator.SetAlgorithm(1, false);  // what 5 opened was recorded as 1
  EXPECT_EQ(opened(), 4U);
  EXPECT_EQ(windows.openHandles() - countBefore, 1U);
}

TEST_F(HashGeneratorTest, KeysAndChoicesThatDoNotFit) {
  std::vector<std::byte> digest(3);
  HashGenerator keyed;
  keyed.SetAlgorithm(1, true);
  EXPECT_FALSE(keyed.GenerateHash("data", "", digest));
  EXPECT_TRUE(digest.empty());
  EXPECT_EQ(logged(), Lines({line(CORE::kError, L"Unable to perform HMAC without a key")}));
  EXPECT_EQ(windows.faults.callCount("BCryptGetProperty"), 0U);

  HashGenerator plain;
  plain.SetAlgorithm(2, false);
  EXPECT_EQ(hexOf(plain, "abc", "key"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(logged(), Lines({line(CORE::kWarn, L"HMAC not selected, but key was given.")}));

  HashGenerator unset;
  EXPECT_EQ(hexOf(unset, "what do ya want for nothing?", "Jefe"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  EXPECT_EQ(logged(), Lines({line(CORE::kWarn, L"HMAC not selected, but key was given."),
                             line(CORE::kWarn, L"Hash algorithm not chosen, using defaults")}));
  HashGenerator unkeyed;
  EXPECT_EQ(hexOf(unkeyed, "abc", ""), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(logged(), Lines({line(CORE::kWarn, L"Hash algorithm not chosen, using defaults")}));
}

TEST_F(HashGeneratorTest, EveryCallFailingInTurn) {
  struct Row {
    const char* call;
    std::size_t nth;
    std::wstring message;
    std::size_t digestSize;
  };
  const Row rows[] = {
      {"BCryptGetProperty", 1, L"BCryptGetProperty (Object Length) failed: 0xc000009a", 0},
      {"HeapAlloc", 1, L"HeapAlloc (Hash Object) failed", 0},
      {"BCryptGetProperty", 2, L"BCryptGetProperty (Hash Length) failed: 0xc000009a", 0},
      {"BCryptCreateHash", 1, L"BCryptCreateHash failed: 0xc000009a", 0},
      {"BCryptHashData", 1, L"BCryptHashData failed: 0xc000009a", 0},
      {"BCryptFinishHash", 1, L"BCryptFinishHash failed: 0xc000009a", 32},
  };
  HashGenerator generator;
  generator.SetAlgorithm(1, true);
  for (const Row& row : rows) {
    std::vector<std::byte> digest(5, std::byte{1});
    windows.faults.failNth(row.call, row.nth, 0xC000009A);
    EXPECT_FALSE(generator.GenerateHash("data", "key", digest)) << row.call;
    EXPECT_EQ(logged(), Lines({line(CORE::kError, row.message)}));
    EXPECT_EQ(digest, std::vector<std::byte>(row.digestSize));
    EXPECT_EQ(windows.openHandles() - countBefore, 1U) << windows.openHandlesText();  // the provider stays open
  }
  EXPECT_EQ(hexOf(generator, "what do ya want for nothing?", "Jefe"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST_F(HashGeneratorTest, ProviderThatCannotBeOpened) {
  const sim::LogLine openFailed = {CORE::kError,
                                   L"HashGenerator::SetAlgorithm(): BCryptOpenAlgorithmProvider failed: 0xc0000017"};
  windows.faults.failAll("BCryptOpenAlgorithmProvider", 0xC0000017);
  HashGenerator generator;
  generator.SetAlgorithm(2, false);
  EXPECT_EQ(logged(), Lines({openFailed}));
  std::string text = "before";
  EXPECT_FALSE(generator.HashAndFormat("abc", "", HashOutputFormat::Base64, text));
  EXPECT_EQ(text, "");
  EXPECT_EQ(logged(), Lines({line(CORE::kWarn, L"Hash algorithm not chosen, using defaults"), openFailed,
                             line(CORE::kError, L"Failed to open algorithm provider")}));
  windows.faults.clear();
  EXPECT_EQ(hexOf(generator, "abc", ""), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(HashGeneratorTest, LengthsAboveThirtyTwoBitsAreRefusedUnread) {
  const std::byte one{};
  constexpr std::uint64_t kTooLong = 0x100000000;
  std::vector<std::byte> digest;
  HashGenerator generator;
  generator.SetAlgorithm(1, true);
  EXPECT_FALSE(generator.GenerateHash(&one, kTooLong, &one, 1, digest));
  EXPECT_FALSE(generator.GenerateHash(&one, 1, &one, kTooLong, digest));
  EXPECT_EQ(logged(), Lines({line(CORE::kError, L"BCryptHashData failed: 0xc000000d"),
                             line(CORE::kError, L"BCryptCreateHash failed: 0xc000000d")}));
}

TEST_F(HashGeneratorTest, FormatsOfADigest) {
  struct Row {
    std::uint32_t format;
    std::vector<std::byte> digest;
    const char* text;
  };
  const std::vector<std::byte> two = {std::byte{0xAB}, std::byte{0x01}};
  const std::vector<std::byte> one = {std::byte{0x0F}};
  const Row rows[] = {
      {0, two, "qwE="}, {1, two, "AB01"}, {2, two, "AB:01"}, {3, two, "ab01"}, {4, two, "ab:01"}, {1, one, "0F"},
      {2, one, "0F"},   {4, one, "0f"},   {0, one, "Dw=="},  {0, {}, ""},      {2, {}, ""},       {9, {}, ""},
  };
  for (const Row& row : rows) {
    std::string text = "before";
    HashGenerator::FormatHash(row.digest, row.format, text);
    EXPECT_EQ(text, row.text);
  }
  EXPECT_TRUE(logged().empty());
  std::string text = "before";
  HashGenerator::FormatHash(two, 9, text);
  EXPECT_EQ(text, "");
  EXPECT_EQ(logged(), Lines({{CORE::kError, L"HashGenerator::FormatHash(): Unrecognized output format"}}));
}

}  // namespace
