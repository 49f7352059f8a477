#include "core/bag/property_bag.h"

#include <gtest/gtest.h>

#include "core/base/unicode.h"
#include "core/text/text.h"
#include "tests/sim/windows.h"

// The fuzz target checks how well-formed texts are read.

namespace {

using CORE::coreException;
using CORE::PropertyBag;

std::wstring repeated(const std::wstring& piece, std::size_t count) {
  return CORE::joinStrings(std::vector<std::wstring>(count + 1), piece);
}

struct PropertyBagTest : testing::Test {
  sim::Windows windows_;
  PropertyBag bag_;
};

TEST_F(PropertyBagTest, LooksUpByNameInAnyCaseAndFindsTheFirst) {
  bag_.add(L"Name", L"first");
  bag_.add(L"NAME", L"second");
  bag_.addBag(L"Nest", bag_, true);
  EXPECT_EQ(bag_.get(L"name").str() + bag_.get(L"nest", L" a bag").str(), L"first a bag");
  EXPECT_TRUE(bag_.isBag(L"NEST") && !bag_.isBag(L"name") && !bag_.isBag(L"missing"));
  bag_.set(L"nAME", L"third");
  bag_.set(L"nest", L"text");
  EXPECT_EQ(bag_.toString(L"|", false), L"   Name = \"third\"|   NAME = \"second\"|   Nest = \"text\"|");
  EXPECT_THROW(bag_.getBag(L"Nest"), coreException);
  EXPECT_THROW(bag_.isBag(3), coreException);
}

TEST_F(PropertyBagTest, ErrorResultsAndNumbers) {
  windows_.text.setUnknown(77777);
  bag_.add(L"left over", L"x");
  bag_.setError(5, L" \r\n\t ");
  EXPECT_EQ(bag_.toString(L"|", false), L"   ErrorCode = \"5\"|   ErrorText = \"Message 5.\"|");
  bag_.setError(77777, L"");
  EXPECT_TRUE(bag_.getErrorCode() == 77777 && bag_.getErrorText().str() == L"ErrorCode 77777 (0x12fd1)");
  // As strtol and strtoul of Windows read them.
  const std::tuple<std::wstring, std::int32_t, std::uint32_t> numbers[] = {
      {L" \t-12x", -12, 0xFFFFFFF4},           {L"+0x1F", 31, 31}, {L"2147483648", INT32_MAX, 0x80000000},
      {L"-4294967296", INT32_MIN, 0xFFFFFFFF}, {L"08", 0, 0},
  };
  for (const auto& [text, asInt, asCode] : numbers) {
    bag_.set(L"ErrorCode", text);
    EXPECT_TRUE(bag_.getInt(L"errorcode", 99) == asInt && bag_.getErrorCode() == asCode) << CORE::toUtf8Lossy(text);
  }
  bag_.setErrorText(L"only a text");
  EXPECT_TRUE(bag_.count() == 1 && bag_.getErrorCode() == 0xFFFFFFFFU);
}

TEST_F(PropertyBagTest, TextFormAndMask) {
  PropertyBag outer;
  outer.addBag(L"password", bag_, false);
  bag_.add(L"tokens", std::wstring(L"x\0y", 3));
  bag_.add(L"raw", CORE::wstr::fromBytes("\1\2\3", 3));
  bag_.add(L"none", CORE::wstr::fromBytes("", 0));
  EXPECT_EQ(outer.toString(L"|", true),
            L"   password = |      tokens = \"x y\"|      raw = <BINARY>|      none = \"\"|");
  for (const std::wstring name :
       {L"PASSWORD", L"smartcardpin", L"ticket", L"token", L"bindingtoken", L"FrameworkChannelTicket", L"certificate",
        L"otp", L"OneTimePassword", L"auxiliarypassword", L"rdslicensedata", L"whfbsessionpin"}) {
    bag_.clear();
    bag_.add(name, L"secret");
    EXPECT_EQ(bag_.toString(L"", true) + bag_.toString(L"", false),
              L"   " + name + L" = \"*****\"   " + name + L" = \"secret\"");
  }
}

TEST_F(PropertyBagTest, ParsesKnownTexts) {
  const std::tuple<std::wstring, bool, std::wstring> rows[] = {
      {L"{a:5}", false, L"   old = \"entry\"|"},  // without a quote the bag stays as it was
      {L"{\"a\":{}}", false, L""},
      {L" \"a\":\"1\",\"b\":{\"z\":\"2\"}", true, L"   a = \"1\"|   b = |      z = \"2\"|"},  // no brace is needed
      {L"\"a\":\"1\"", false, L""},                                              // the first character is skipped
      {L"{\"a\":true,\"b\":\"1\",\"c\"}", true, L"   a = \"b\"|   1 = \"c\"|"},  // only texts are values
      {L"{\"a\"\"b\"c\"}", true, L"   a = \"c\"|"},                   // the quote right behind a name is not seen
      {L"{\"a\":{\"x\":\"}\"}}", false, L""},                         // a brace in quotes closes as well
      {L"{\"a\":{\"x\":\"{\"}}", true, L"   a = |      x = \"{\"|"},  // and opens: the outer "}" ends the inner bag
      {L"{\"a\":{\"x\":\"y\"}\"b\":\"c\"}", false, L""},              // the character behind a nested bag is skipped
      {L"{\"a\"{\"x\":\"y\"}}", true, L"   a = |      x = \"y\"|"},   // "{" may stand where ":" does
  };
  for (const auto& [text, ok, form] : rows) {
    bag_.clear();
    bag_.add(L"old", L"entry");
    EXPECT_TRUE(bag_.parse(text) == ok && bag_.toString(L"|", false) == form) << CORE::toUtf8Lossy(text);
  }
}

TEST_F(PropertyBagTest, HugeTextsTakeNeitherStackNorTime) {
  const std::tuple<const char*, std::wstring, bool, std::size_t> rows[] = {
      {"open braces", L" \"a\":" + std::wstring(10'000'000, L'{') + L"\"b\":\"c\"", false, 0},
      {"a long value", L"{\"a\":\"" + std::wstring(10'000'000, L'x') + L"\"}", true, 1},
      {"many entries", L"{" + repeated(L"\"a\":\"b\",", 1'000'000) + L"}", true, 1'000'000},
      {"nested, cut", L"{" + repeated(L"\"a\":{\"b\":\"c\",", 300'000), false, 0},
      {"nested", L"{" + repeated(L"\"b\":{", 1'000'000) + L"\"z\":\"1\"" + std::wstring(1'000'001, L'}'), true, 1},
  };
  for (const auto& [name, text, ok, count] : rows) {
    EXPECT_TRUE(bag_.parse(text) == ok && bag_.count() == count) << name;
  }
  bag_.clone(bag_);
  EXPECT_EQ(bag_.toString(L"\n", false, 20), L"   b = \n      b = \n ");
  // The indentation alone would take more than a framework string can hold.
  EXPECT_THROW(bag_.toString(L"\n", false), coreException);
}

}  // namespace
