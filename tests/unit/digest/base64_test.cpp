#include "upload/digest/base64.h"

#include <gtest/gtest.h>

namespace {

std::string encoded(std::string_view bytes, std::string_view alphabet = kBase64Alphabet) {
  std::string text = "what stood here before";
  base64Encode(bytes, text, alphabet);
  return text;
}

std::string decoded(std::string_view text) {
  CORE::mstr output("what stood here before");
  base64Decode(CORE::mstr(text), output);
  return output.str();
}

// RFC 4648, section 10, and the bytes at both ends of the alphabet.
TEST(Base64, KnownAnswersBothWays) {
  struct Row {
    std::string_view bytes, text;
  };
  using namespace std::literals;
  const Row rows[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xAB\x01"sv, "qwE="},
      {"\0\0\0\0"sv, "AAAAAA=="},
      {"\xFF\xFF\xFF"sv, "////"},
      {"\xFB\xEF\xBE"sv, "++++"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(encoded(row.bytes), row.text);
    EXPECT_EQ(decoded(row.text), row.bytes);
  }
  EXPECT_EQ(encoded("\xFB\xFF", "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"), "-_8=");
  EXPECT_EQ(encoded(std::string(300, 'x')).size(), 400U);
}

// The decoder validates nothing; what it makes of every kind of bad text is fixed. The bytes were worked out by hand
// from the six bits of each character, all ones for a character outside the alphabet.
TEST(Base64, WhatBadTextDecodesTo) {
  using namespace std::literals;
  struct Row {
    std::string_view text, bytes;
  };
  const Row rows[] = {
      {"Z"sv, "\x67"},                   // 011001, then the two top bits of -1
      {"A"sv, "\x03"},                   //
      {"Zm9vY"sv, "foo\x63"},            //
      {"Zg"sv, "f"},                     //
      {"Zm8"sv, "fo"},                   //
      {"Zm9vYmE"sv, "fooba"},            //
      {"Zg==Zg=="sv, "f"},               // padding ends the text
      {"Zm8=Zg=="sv, "fo"},              //
      {"===="sv, "\xFF"},                // no padding in the first two places
      {"Zm 9v"sv, "\x66\x6F\xFD\xBF"},   // the blank counts as -1, the last group is one character
      {"Zm9v\n"sv, "foo\xFF"},           //
      {"\xDA\xED\xB9\xF6"sv, "foo"},     // the top bit of a character does not count
      {"Zm9v\xBD\xBD"sv, "foo\xFF"},     //
      {"AA-A"sv, "\x00\x0F\xC0"sv},      //
      {"AAA\0"sv, "\x00\x00\xFF"sv},     // -1 fills the byte of the fourth place
      {"\0\0\0\0"sv, "\xFF\xFF\xFF"sv},  //
  };
  for (const Row& row : rows) {
    EXPECT_EQ(decoded(row.text), row.bytes) << row.text;
  }
}

TEST(Base64, SecretTextGivesSecretBytes) {
  for (const std::string& text : {std::string("Zm9v"), std::string(400, 'A')}) {
    CORE::mstr secret(text);
    secret.markSecret();
    CORE::mstr output;
    base64Decode(secret, output);
    EXPECT_TRUE(output.isSecret());
    EXPECT_EQ(output.length(), text.size() / 4 * 3);
    base64Decode(CORE::mstr(text), output);
    EXPECT_FALSE(output.isSecret());
  }
}

}  // namespace
