#include "core/property_bag.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "core/convert.h"
#include "core/text.h"
#include "tests/sim/windows.h"

namespace {

using CORE::PropertyBag;

std::wstring repeated(const std::wstring& piece, std::size_t count) {
  return CORE::joinStrings(std::vector<std::wstring>(count + 1), piece);
}

/// The text of a bag of that depth, each level in the "b" of the one above.
std::wstring nested(std::size_t depth) {
  return L"{" + repeated(L"\"b\":{", depth) + L"\"z\":\"1\"" + std::wstring(depth + 1, L'}');
}

std::wstring thrownBy(const std::function<void()>& work) {
  try {
    work();
  } catch (const CORE::coreException& exception) {
    return exception.message();
  }
  return L"nothing";
}

struct PropertyBagTest : testing::Test {
  sim::Windows windows_;
  PropertyBag bag_;
};

TEST_F(PropertyBagTest, LooksUpByNameInAnyCaseAndFindsTheFirst) {
  bag_.add(L"Name", L"first");
  bag_.add(L"NAME", L"second");
  bag_.addBag(L"Nest", PropertyBag(), false);
  EXPECT_EQ(bag_.get(L"name").str(), L"first");
  EXPECT_EQ(bag_.get(L"nest", L"a bag").str(), L"a bag");
  EXPECT_EQ(bag_.getInt(L"nest", -7), -7);
  EXPECT_TRUE(bag_.isBag(L"NEST") && !bag_.isBag(L"name") && !bag_.isBag(L"missing"));
  bag_.set(L"nAME", L"third");
  bag_.set(L"nest", L"text");
  EXPECT_EQ(bag_.toString(L"|", false), L"   Name = \"third\"|   NAME = \"second\"|   Nest = \"text\"|");
  for (const std::wstring name : {L"Nest", L"gone"}) {
    EXPECT_EQ(thrownBy([&] { bag_.getBag(name); }), L"PropertyBag: name '" + name + L"' does not exist as bag");
  }
  EXPECT_EQ(thrownBy([&] { bag_.getBag(2); }), L"PropertyBag: index is out of range or not a bag");
  EXPECT_EQ(thrownBy([&] { bag_.isBag(3); }), L"PropertyBag: index is out of range");
}

TEST_F(PropertyBagTest, ErrorResultsAndNumbers) {
  windows_.text.setUnknown(77777);
  EXPECT_EQ(bag_.getErrorText(L"default").str(), L"default");
  const std::tuple<std::uint32_t, std::wstring, std::size_t, std::wstring> results[] = {
      {5, L" \r\n\t ", 2, L"Message 5."},
      {5, L"  own text\r\n", 2, L"own text"},
      {77777, L"", 1, L"ErrorCode 77777 (0x12fd1)"},
  };
  for (const auto& [code, text, count, shown] : results) {
    bag_.add(L"left over", L"x");
    bag_.setError(code, text);
    EXPECT_TRUE(bag_.count() == count && bag_.getErrorCode() == code) << bag_.count();
    EXPECT_EQ(bag_.getErrorText(L"default").str(), shown);
  }
  // As the platform's library reads them.
  const std::tuple<std::wstring, std::int32_t, std::uint32_t> numbers[] = {
      {L" \t-12x", -12, 0xFFFFFFF4},           {L"+0x1F", 31, 31}, {L"2147483648", INT32_MAX, 0x80000000},
      {L"-4294967296", INT32_MIN, 0xFFFFFFFF}, {L"08", 0, 0},
  };
  for (const auto& [text, asInt, asCode] : numbers) {
    bag_.set(L"ErrorCode", text);
    EXPECT_EQ(bag_.getInt(L"errorcode", 99), asInt) << CORE::toUtf8Lossy(text);
    EXPECT_EQ(bag_.getErrorCode(), asCode) << CORE::toUtf8Lossy(text);
  }
  bag_.setErrorText(L"only a text");
  EXPECT_EQ(bag_.toString(L"|", false), L"   ErrorText = \"only a text\"|");
  EXPECT_EQ(bag_.getErrorCode(), 0xFFFFFFFFU);
}

TEST_F(PropertyBagTest, HandlesShareAndCopiesDoNot) {
  bag_.set(L"z", L"1");
  PropertyBag outer;
  outer.addBag(L"shared", bag_, false);
  outer.addBag(L"copied", bag_, true);
  outer.getBag(0).set(L"z", L"2");
  PropertyBag clone;
  clone.add(L"kept", L"k");
  clone.clone(outer);
  clone.getBag(L"shared").set(L"z", L"3");
  EXPECT_EQ(bag_.get(L"z").str(), L"2");
  EXPECT_EQ(outer.getBag(L"copied").get(L"z").str(), L"1");
  EXPECT_EQ(clone.count(), 3U);
  bag_.clone(bag_);
  bag_.addBag(L"self", bag_, true);
  bag_.getBag(L"self").clone(bag_);  // the source holds the bag it is copied into
  EXPECT_EQ(bag_.count(), 3U);
  EXPECT_EQ(bag_.getBag(L"self").count(), 5U);
}

TEST_F(PropertyBagTest, TextFormAndMask) {
  PropertyBag outer;
  outer.add(L"tokens", std::wstring(L"x\0y", 3));
  outer.addBag(L"password", bag_, false);
  bag_.add(L"raw", CORE::wstr::fromBytes("\1\2\3", 3));
  bag_.add(L"none", CORE::wstr::fromBytes("", 0));
  PropertyBag copy;
  copy.clone(outer);
  EXPECT_EQ(copy.toString(L"|", true), L"   tokens = \"x y\"|   password = |      raw = <BINARY>|      none = \"\"|");
  for (const wchar_t* name :
       {L"PASSWORD", L"smartcardpin", L"ticket", L"token", L"bindingtoken", L"FrameworkChannelTicket", L"certificate",
        L"otp", L"OneTimePassword", L"auxiliarypassword", L"rdslicensedata", L"whfbsessionpin"}) {
    PropertyBag single;
    single.add(name, L"secret");
    EXPECT_TRUE(single.toString(L"", true).ends_with(L" = \"*****\"")) << CORE::toUtf8Lossy(name);
    EXPECT_TRUE(single.toString(L"", false).ends_with(L" = \"secret\""));
  }
}

TEST_F(PropertyBagTest, ParsesKnownTexts) {
  const std::tuple<std::wstring, bool, std::wstring> rows[] = {
      {L"{a:5}", false, L"   old = \"entry\"|"},  // without a quote nothing happens
      {L"{\"a\":{}}", false, L""},
      {L"\"", true, L""},
      {L" \"a\":\"1\",\"b\":{\"z\":\"2\"}", true, L"   a = \"1\"|   b = |      z = \"2\"|"},  // no brace is needed
      {L"\"a\":\"1\"", false, L""},                                              // the first character is skipped
      {L"{\"a\":true,\"b\":\"1\",\"c\"}", true, L"   a = \"b\"|   1 = \"c\"|"},  // only texts are values
      {L"{\"a\"\"b\"c\"}", true, L"   a = \"c\"|"},                   // the quote right behind a name is not seen
      {L"{\"a\":{\"x\":\"}\"}}", false, L""},                         // a brace in quotes closes as well
      {L"{\"a\":{\"x\":\"{\"}}", true, L"   a = |      x = \"{\"|"},  // and opens: the outer "}" ends the inner bag
      {L"{\"a\":{\"x\":\"y\"}\"b\":\"c\"}", false, L""},              // behind a nested bag one is skipped
      {L"{\"a\"{\"x\":\"y\"}}", true, L"   a = |      x = \"y\"|"},   // "{" may stand where ":" does
      {L"{\"a\":{\"x\":\"y\"", false, L""},
  };
  for (const auto& [text, ok, form] : rows) {
    bag_.clear();
    bag_.add(L"old", L"entry");
    EXPECT_EQ(bag_.parse(text), ok) << CORE::toUtf8Lossy(text);
    EXPECT_EQ(bag_.toString(L"|", false), form) << CORE::toUtf8Lossy(text);
  }
}

TEST_F(PropertyBagTest, HugeTextsTakeNeitherStackNorTime) {
  constexpr std::size_t kHuge = 10'000'000;
  const std::tuple<std::wstring, bool, std::size_t> rows[] = {
      {L" \"a\":" + std::wstring(kHuge, L'{') + L"\"b\":\"c\"", false, 0},
      {L"{\"a\":\"1\"," + repeated(L"{}", 1'000'000), true, 1},
      {L"{\"a\":\"" + std::wstring(kHuge, L'x') + L"\"}", true, 1},
      {L"{" + repeated(L"\"a\":\"b\",", 1'000'000) + L"}", true, 1'000'000},
      {L"{" + repeated(L"\"a\":{\"b\":\"c\",", 300'000), false, 0},
  };
  for (const auto& [text, ok, count] : rows) {
    EXPECT_EQ(bag_.parse(text), ok) << count;
    EXPECT_EQ(bag_.count(), count);
  }
  EXPECT_TRUE(bag_.parse(nested(1'000'000)));
  bag_.clone(bag_);
  EXPECT_EQ(bag_.toString(L"\n", false, 20), L"   b = \n      b = \n ");
  // The indentation alone would take more than a framework string can hold.
  EXPECT_EQ(thrownBy([&] { bag_.toString(L"\n", false); }), L"OutOfMem");
}

TEST_F(PropertyBagTest, SharedDataIsReleasedOnAnyThread) {
  bag_.parse(nested(100));
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([handle = bag_]() mutable { handle = handle.getBag(0); });
  }
  bag_ = PropertyBag();
}

}  // namespace
