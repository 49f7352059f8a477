#include "core/property_bag.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "tests/sim/windows.h"

namespace {

using CORE::PropertyBag;

class PropertyBagTest : public testing::Test {
 protected:
  std::wstring messageOf(const std::function<void()>& work) {
    try {
      work();
    } catch (const CORE::coreException& exception) {
      return exception.message();
    }
    return L"nothing thrown";
  }

  /// A bag of that depth, each level in the "b" of the one above.
  PropertyBag nested(std::size_t depth) {
    PropertyBag top;
    PropertyBag at = top;
    for (std::size_t i = 0; i < depth; ++i) {
      PropertyBag below;
      at.addBag(L"b", below, false);
      at = below;
    }
    at.set(L"z", L"1");
    return top;
  }

  sim::Windows windows_;
};

TEST_F(PropertyBagTest, LooksUpByNameInAnyCaseAndFindsTheFirst) {
  PropertyBag bag;
  bag.add(L"Name", L"first");
  bag.add(L"NAME", L"second");
  bag.addBag(L"Nest", PropertyBag(), false);
  EXPECT_EQ(bag.count(), 3U);
  EXPECT_EQ(bag.get(L"name").str(), L"first");
  EXPECT_EQ(bag.get(L"names", L"none").str(), L"none");
  EXPECT_EQ(bag.get(L"nest", L"a bag").str(), L"a bag");
  EXPECT_EQ(bag.getInt(L"nest", -7), -7);
  EXPECT_TRUE(bag.isBag(L"NEST"));
  EXPECT_FALSE(bag.isBag(L"name"));
  EXPECT_FALSE(bag.isBag(L"missing"));
  EXPECT_EQ(bag.getName(1).str(), L"NAME");

  bag.set(L"nAME", L"third");
  EXPECT_EQ(bag.get(L"Name").str(), L"third");
  EXPECT_EQ(bag.count(), 3U);
  bag.set(L"nest", L"text");
  EXPECT_FALSE(bag.isBag(2));
  EXPECT_EQ(bag.get(L"Nest").str(), L"text");
}

TEST_F(PropertyBagTest, ThrowsItsTexts) {
  PropertyBag bag;
  bag.add(L"text", L"1");
  const std::wstring range = L"PropertyBag: index is out of range";
  EXPECT_EQ(messageOf([&] { bag.getBag(L"text"); }), L"PropertyBag: name 'text' does not exist as bag");
  EXPECT_EQ(messageOf([&] { bag.getBag(L"gone"); }), L"PropertyBag: name 'gone' does not exist as bag");
  EXPECT_EQ(messageOf([&] { bag.getBag(0); }), range + L" or not a bag");
  EXPECT_EQ(messageOf([&] { bag.getBag(1); }), range + L" or not a bag");
  EXPECT_EQ(messageOf([&] { bag.getName(1); }), range);
  EXPECT_EQ(messageOf([&] { bag.isBag(1); }), range);
}

TEST_F(PropertyBagTest, NumbersAsTheLibraryReadsThem) {
  struct Row {
    const wchar_t* text;
    std::int32_t asInt;
    std::uint32_t asCode;
  };
  const Row rows[] = {
      {L"", 0, 0},
      {L"12", 12, 12},
      {L" \t-12x", -12, 0xFFFFFFF4},
      {L"+7", 7, 7},
      {L"0x1F", 31, 31},
      {L"0X", 0, 0},
      {L"0xg", 0, 0},
      {L"017", 15, 15},
      {L"08", 0, 0},
      {L"abc", 0, 0},
      {L"2147483648", 2147483647, 0x80000000},
      {L"-2147483649", -2147483647 - 1, 0x7FFFFFFF},
      {L"4294967295", 2147483647, 0xFFFFFFFF},
      {L"-4294967296", -2147483647 - 1, 0xFFFFFFFF},
      {L"99999999999999999999999999", 2147483647, 0xFFFFFFFF},
      {L"0xFFFFFFFF", 2147483647, 0xFFFFFFFF},
  };
  for (const Row& row : rows) {
    PropertyBag bag;
    bag.set(L"ErrorCode", row.text);
    EXPECT_EQ(bag.getInt(L"errorcode", 99), row.asInt) << testing::PrintToString(std::wstring(row.text));
    EXPECT_EQ(bag.getErrorCode(), row.asCode) << testing::PrintToString(std::wstring(row.text));
  }
}

TEST_F(PropertyBagTest, ErrorResults) {
  windows_.text.setUnknown(77777);
  struct Row {
    std::uint32_t code;
    std::wstring text;
    std::size_t count;
    std::wstring shown;
  };
  const Row rows[] = {
      {5, L" \r\n\t ", 2, L"Message 5."},
      {5, L"  own text\r\n", 2, L"own text"},
      {77777, L"", 1, L"ErrorCode 77777 (0x12fd1)"},
      {0xFFFFFFFF, L"bad", 2, L"bad"},
  };
  for (const Row& row : rows) {
    PropertyBag bag;
    bag.add(L"left over", L"x");
    bag.setError(row.code, row.text);
    EXPECT_EQ(bag.count(), row.count);
    EXPECT_EQ(bag.getErrorCode(), row.code);
    EXPECT_EQ(bag.getErrorText(L"default").str(), row.shown);
  }
  PropertyBag bag;
  EXPECT_EQ(bag.getErrorCode(), 0U);
  EXPECT_TRUE(bag.getErrorText().empty());
  EXPECT_EQ(bag.getErrorText(L"default").str(), L"default");
  bag.set(L"ErrorCode", L"2");
  EXPECT_EQ(bag.getErrorText().str(), L"ErrorCode 2 (0x2)");
  bag.setErrorText(L"only a text");
  EXPECT_EQ(bag.count(), 1U);
  EXPECT_EQ(bag.getErrorCode(), 0xFFFFFFFFU);
  const CORE::wstr own = bag.getErrorText();
  bag.setError(0, own);
  EXPECT_EQ(bag.get(L"ErrorCode").str(), L"0");
  EXPECT_EQ(bag.getErrorCode(), 0xFFFFFFFFU);
}

TEST_F(PropertyBagTest, HandlesShareAndCopiesDoNot) {
  PropertyBag inner;
  inner.set(L"z", L"1");
  PropertyBag outer;
  outer.addBag(L"shared", inner, false);
  outer.addBag(L"copied", inner, true);
  outer.getBag(0).set(L"z", L"2");
  EXPECT_EQ(inner.get(L"z").str(), L"2");
  EXPECT_EQ(outer.getBag(L"copied").get(L"z").str(), L"1");

  PropertyBag clone;
  clone.add(L"kept", L"k");
  clone.clone(outer);
  clone.getBag(L"shared").set(L"z", L"3");
  EXPECT_EQ(inner.get(L"z").str(), L"2");
  EXPECT_EQ(clone.count(), 3U);

  PropertyBag held = outer.getBag(L"shared");
  outer.clear();
  EXPECT_EQ(held.get(L"z").str(), L"2");
  held.clone(held);
  EXPECT_EQ(held.count(), 2U);
  held.addBag(L"self", held, true);
  held.getBag(L"self").clone(held);  // the source holds the bag it is copied into
  EXPECT_EQ(held.getBag(L"self").count(), 5U);
}

TEST_F(PropertyBagTest, TextForm) {
  PropertyBag bag;
  bag.add(L"a", L"1");
  PropertyBag inner;
  inner.add(L"Token", L"abc");
  inner.add(L"tokens", std::wstring(L"x\0y", 3));
  bag.addBag(L"password", inner, false);
  bag.add(L"raw", CORE::wstr::fromBytes("\1\2\3", 3));
  bag.add(L"none", CORE::wstr::fromBytes("", 0));
  const std::wstring open =
      L"   a = \"1\"\r\n   password = \r\n      Token = \"abc\"\r\n      tokens = \"x y\"\r\n"
      L"   raw = <BINARY>\r\n   none = \"\"\r\n";
  std::wstring masked = open;
  masked.replace(masked.find(L"abc"), 3, L"*****");
  EXPECT_EQ(bag.toString(L"\r\n", false), open);
  EXPECT_EQ(bag.toString(L"\r\n", true), masked);
  EXPECT_EQ(bag.toString(L"\r\n", false, 9), open.substr(0, 9));

  PropertyBag copy;
  copy.clone(bag);
  EXPECT_EQ(copy.toString(L"\r\n", false), open);
  EXPECT_EQ(copy.get(L"raw").storedLength(), 0x80000003U);
}

TEST_F(PropertyBagTest, SensitiveNames) {
  for (const wchar_t* name :
       {L"password", L"PASSWORD", L"smartcardpin", L"ticket", L"token", L"bindingtoken", L"FrameworkChannelTicket",
        L"certificate", L"otp", L"OneTimePassword", L"auxiliarypassword", L"rdslicensedata", L"whfbsessionpin"}) {
    PropertyBag bag;
    bag.add(name, L"secret");
    EXPECT_EQ(bag.toString(L"", true), L"   " + std::wstring(name) + L" = \"*****\"");
  }
  for (const wchar_t* name : {L"", L"password2", L"userpassword", L"tokens", L"toke"}) {
    PropertyBag bag;
    bag.add(name, L"open");
    EXPECT_EQ(bag.toString(L"", true), L"   " + std::wstring(name) + L" = \"open\"");
  }
}

TEST_F(PropertyBagTest, DeepNestingNeedsNoStack) {
  constexpr std::size_t kDepth = 200'000;
  PropertyBag copy;
  {
    const PropertyBag bag = nested(kDepth);
    copy.clone(bag);
    EXPECT_EQ(bag.toString(L"\n", false, 20), L"   b = \n      b = \n ");
  }
  // The indentation alone would take more than a framework string can hold.
  EXPECT_EQ(messageOf([&] { copy.toString(L"\n", false); }), L"OutOfMem");
  PropertyBag at = copy;
  for (std::size_t i = 0; i < kDepth; ++i) {
    at = at.getBag(0);
  }
  EXPECT_EQ(at.get(L"z").str(), L"1");
  const PropertyBag small = nested(300);
  EXPECT_EQ(small.toString(L"\n", false).size(), 3U * 300 * 301 / 2 + 300U * 5 + 3U * 301 + 8);
}

TEST_F(PropertyBagTest, SharedDataIsReleasedOnAnyThread) {
  PropertyBag top = nested(100);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([handle = top]() mutable {
      PropertyBag below = handle.getBag(0);
      handle = PropertyBag();
    });
  }
  top = PropertyBag();
  for (auto& thread : threads) {
    thread.join();
  }
}

}  // namespace
