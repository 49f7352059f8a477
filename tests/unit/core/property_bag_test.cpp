#include "core/property_bag.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <thread>

#include "core/convert.h"
#include "tests/sim/windows.h"

namespace {

using CORE::PropertyBag;

constexpr std::size_t kHuge = 10'000'000;

/// The rules one by one, step for step, with recursion: what the product's reader must agree with. The result is the
/// bag's text form with "|" behind each entry; a failure is an exception.
std::wstring referenceParse(const std::wstring& text, std::size_t level = 1) {
  const auto find = [&](const wchar_t* characters, std::size_t from) {
    const std::size_t found = text.find_first_of(characters, from);
    return found != text.npos ? found : throw std::invalid_argument("unreadable");
  };
  find(L"\"", 0);
  std::wstring bag;
  std::size_t resume = 0;
  for (;;) {
    const std::size_t nameQuote = text.find(L'"', resume + 1);
    if (nameQuote == text.npos) {
      return bag;
    }
    const std::size_t nameEnd = find(L"\"", nameQuote + 1);
    bag.append(level * 3, L' ').append(text, nameQuote + 1, nameEnd - nameQuote - 1).append(L" = ");
    const std::size_t open = text.find(L'{', nameEnd + 1);
    const std::size_t quote = find(L"\"", nameEnd + 2);
    if (quote < open) {
      resume = find(L"\"", quote + 1);
      bag.append(text, quote, resume - quote + 1).append(L"|");
      continue;
    }
    std::size_t close = open;
    for (std::size_t opened = 1; opened > 0;) {
      close = find(L"{}", close + 1);
      text[close] == L'{' ? ++opened : --opened;
    }
    bag.append(L"|").append(referenceParse(text.substr(open, close - open + 1), level + 1));
    resume = close + 1;
  }
}

/// Stray characters alone, a text of the form the reader expects, or one of that form with a few stray characters.
std::wstring randomText(std::mt19937& random, unsigned kind) {
  constexpr std::wstring_view kStrays = L"\"{}a:,= \n";
  const std::wstring entry = L"\"n\":\"v\",";
  std::wstring text;
  if (kind != 0) {
    text = entry;
    for (auto i = random() % 10; i > 0; --i) {
      text = random() % 2 == 0 ? L"\"b\":{" + text + L"}," : random() % 2 == 0 ? entry + text : text + entry;
    }
    text = L"{" + text + L"}";
  }
  const unsigned most[] = {40, 1, 4};
  for (auto i = random() % most[kind]; i > 0; --i) {
    text.insert(random() % (text.size() + 1), 1, kStrays[random() % kStrays.size()]);
  }
  return text;
}

std::wstring repeated(std::wstring_view piece, std::size_t count) {
  std::wstring out;
  out.reserve(piece.size() * count);
  for (std::size_t i = 0; i < count; ++i) {
    out += piece;
  }
  return out;
}

class PropertyBagTest : public testing::Test {
 protected:
  /// A bag of that depth, each level in the "b" of the one above.
  static PropertyBag nested(std::size_t depth) {
    PropertyBag bag;
    EXPECT_TRUE(bag.parse(L"{" + repeated(L"\"b\":{", depth) + L"\"z\":\"1\"" + std::wstring(depth + 1, L'}')));
    return bag;
  }

  static void expectThrown(const std::wstring& message, const std::function<void()>& work) {
    try {
      work();
      ADD_FAILURE() << "nothing thrown";
    } catch (const CORE::coreException& exception) {
      EXPECT_EQ(exception.message(), message);
    }
  }

  sim::Windows windows_;
};

TEST_F(PropertyBagTest, LooksUpByNameInAnyCaseAndFindsTheFirst) {
  PropertyBag bag;
  bag.add(L"Name", L"first");
  bag.add(L"NAME", L"second");
  bag.addBag(L"Nest", PropertyBag(), false);
  EXPECT_EQ(bag.get(L"name").str(), L"first");
  EXPECT_EQ(bag.get(L"names", L"none").str(), L"none");
  EXPECT_EQ(bag.get(L"nest", L"a bag").str(), L"a bag");
  EXPECT_EQ(bag.getInt(L"nest", -7), -7);
  EXPECT_TRUE(bag.isBag(L"NEST"));
  EXPECT_FALSE(bag.isBag(L"name") || bag.isBag(L"missing"));
  bag.set(L"nAME", L"third");
  bag.set(L"nest", L"text");
  EXPECT_EQ(bag.toString(L"|", false), L"   Name = \"third\"|   NAME = \"second\"|   Nest = \"text\"|");

  const std::wstring range = L"PropertyBag: index is out of range";
  expectThrown(L"PropertyBag: name 'Nest' does not exist as bag", [&] { bag.getBag(L"Nest"); });
  expectThrown(L"PropertyBag: name 'gone' does not exist as bag", [&] { bag.getBag(L"gone"); });
  expectThrown(range + L" or not a bag", [&] { bag.getBag(2); });
  expectThrown(range + L" or not a bag", [&] { bag.getBag(3); });
  expectThrown(range, [&] { bag.getName(3); });
  expectThrown(range, [&] { bag.isBag(3); });
}

TEST_F(PropertyBagTest, NumbersAsTheLibraryReadsThem) {
  const std::tuple<std::wstring, std::int32_t, std::uint32_t> rows[] = {
      {L" \t-12x", -12, 0xFFFFFFF4},
      {L"+0x1F", 31, 31},
      {L"017", 15, 15},
      {L"2147483648", INT32_MAX, 0x80000000},
      {L"-2147483649", INT32_MIN, 0x7FFFFFFF},
      {L"4294967295", INT32_MAX, 0xFFFFFFFF},
      {L"-4294967296", INT32_MIN, 0xFFFFFFFF},
      {L"99999999999999999999999999", INT32_MAX, 0xFFFFFFFF},
  };
  PropertyBag bag;
  for (const auto& [text, asInt, asCode] : rows) {
    bag.set(L"ErrorCode", text);
    EXPECT_EQ(bag.getInt(L"errorcode", 99), asInt) << CORE::toUtf8Lossy(text);
    EXPECT_EQ(bag.getErrorCode(), asCode) << CORE::toUtf8Lossy(text);
  }
  for (const wchar_t* nothing : {L"", L"0X", L"0xg", L"08", L"abc"}) {
    bag.set(L"ErrorCode", nothing);
    EXPECT_EQ(bag.getInt(L"errorcode", 99), 0) << CORE::toUtf8Lossy(nothing);
  }
}

TEST_F(PropertyBagTest, ErrorResults) {
  windows_.text.setUnknown(77777);
  const std::tuple<std::uint32_t, std::wstring, std::size_t, std::wstring> rows[] = {
      {5, L" \r\n\t ", 2, L"Message 5."},
      {5, L"  own text\r\n", 2, L"own text"},
      {77777, L"", 1, L"ErrorCode 77777 (0x12fd1)"},
  };
  PropertyBag bag;
  EXPECT_EQ(bag.getErrorCode(), 0U);
  EXPECT_EQ(bag.getErrorText(L"default").str(), L"default");
  for (const auto& [code, text, count, shown] : rows) {
    bag.add(L"left over", L"x");
    bag.setError(code, text);
    EXPECT_EQ(bag.count(), count);
    EXPECT_EQ(bag.getErrorCode(), code);
    EXPECT_EQ(bag.getErrorText(L"default").str(), shown);
  }
  bag.setErrorText(L"only a text");
  EXPECT_EQ(bag.count(), 1U);
  EXPECT_EQ(bag.getErrorCode(), 0xFFFFFFFFU);
  const CORE::wstr own = bag.getErrorText();
  bag.setError(0, own);
  EXPECT_EQ(bag.toString(L"|", false), L"   ErrorCode = \"0\"|   ErrorText = \"only a text\"|");
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
  held.clone(held);
  held.addBag(L"self", held, true);
  held.getBag(L"self").clone(held);  // the source holds the bag it is copied into
  EXPECT_EQ(held.count(), 3U);
  EXPECT_EQ(held.getBag(L"self").count(), 5U);
}

TEST_F(PropertyBagTest, TextFormAndMask) {
  PropertyBag bag;
  PropertyBag inner;
  inner.add(L"tokens", std::wstring(L"x\0y", 3));
  bag.addBag(L"password", inner, false);
  bag.add(L"raw", CORE::wstr::fromBytes("\1\2\3", 3));
  bag.add(L"none", CORE::wstr::fromBytes("", 0));
  const std::wstring form = L"   password = \r\n      tokens = \"x y\"\r\n   raw = <BINARY>\r\n   none = \"\"\r\n";
  PropertyBag copy;
  copy.clone(bag);
  EXPECT_EQ(copy.toString(L"\r\n", false), form);
  EXPECT_EQ(copy.toString(L"\r\n", true), form);
  EXPECT_EQ(copy.toString(L"\r\n", false, 9), form.substr(0, 9));
  EXPECT_EQ(copy.get(L"raw").storedLength(), 0x80000003U);

  const auto shown = [](const std::wstring& name, bool mask) {
    PropertyBag single;
    single.add(name, L"secret");
    return single.toString(L"", mask).substr(6 + name.size());
  };
  for (const wchar_t* name :
       {L"PASSWORD", L"smartcardpin", L"ticket", L"token", L"bindingtoken", L"FrameworkChannelTicket", L"certificate",
        L"otp", L"OneTimePassword", L"auxiliarypassword", L"rdslicensedata", L"whfbsessionpin"}) {
    EXPECT_EQ(shown(name, true), L"\"*****\"");
    EXPECT_EQ(shown(name, false), L"\"secret\"");
  }
  for (const wchar_t* name : {L"", L"password2", L"userpassword", L"tokens", L"toke"}) {
    EXPECT_EQ(shown(name, true), L"\"secret\"");
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
    PropertyBag bag;
    bag.add(L"old", L"entry");
    EXPECT_EQ(bag.parse(text), ok) << CORE::toUtf8Lossy(text);
    EXPECT_EQ(bag.toString(L"|", false), form) << CORE::toUtf8Lossy(text);
  }
}

TEST_F(PropertyBagTest, ParseAgreesWithTheRulesOnRandomTexts) {
  std::mt19937 random(20260401);
  int read = 0;
  int nested = 0;
  for (unsigned i = 0; i < 30'000; ++i) {
    const std::wstring text = randomText(random, i % 3);
    PropertyBag bag;
    const bool ok = bag.parse(text);
    try {
      ASSERT_EQ(bag.toString(L"|", false), referenceParse(text)) << CORE::toUtf8Lossy(text);
      ASSERT_TRUE(ok) << CORE::toUtf8Lossy(text);
      ++read;
      nested += bag.toString(L"|", false).find(L"      ") != text.npos ? 1 : 0;
    } catch (const std::invalid_argument&) {
      ASSERT_FALSE(ok || bag.count() != 0) << CORE::toUtf8Lossy(text);
    }
  }
  EXPECT_GT(read, 5'000);  // or the texts would show nothing
  EXPECT_GT(nested, 3'000);
}

TEST_F(PropertyBagTest, HugeTextsTakeNeitherStackNorTime) {
  const std::wstring head = L"{\"a\":\"1\",";
  const std::tuple<std::wstring, bool, std::size_t> rows[] = {
      {L" \"a\":" + std::wstring(kHuge, L'{') + L"\"b\":\"c\"", false, 0},
      {L" \"a\":\"b\"" + std::wstring(kHuge, L'}'), true, 1},
      {head + repeated(L"{}", kHuge / 2), true, 1},
      {head + L"\"" + std::wstring(kHuge / 2, L'{') + std::wstring(kHuge / 2, L'}') + L"\":\"x\"}", true, 2},
      {head + L"\"b\":\"" + std::wstring(kHuge, L'x') + L"\"}", true, 2},
      {L"{" + repeated(L"\"a\":\"b\",", 1'000'000) + L"}", true, 1'000'000},
      {L"{" + repeated(L"\"a\":{\"b\":\"c\",", 300'000), false, 0},
  };
  for (const auto& [text, ok, count] : rows) {
    PropertyBag bag;
    EXPECT_EQ(bag.parse(text), ok) << count;
    EXPECT_EQ(bag.count(), count);
  }
}

TEST_F(PropertyBagTest, AMillionBagsDeep) {
  constexpr std::size_t kDepth = 1'000'000;
  PropertyBag at;
  at.clone(nested(kDepth));
  EXPECT_EQ(at.toString(L"\n", false, 20), L"   b = \n      b = \n ");
  // The indentation alone would take more than a framework string can hold.
  expectThrown(L"OutOfMem", [&] { at.toString(L"\n", false); });
  for (std::size_t i = 0; i < kDepth; ++i) {
    at = at.getBag(0);
  }
  EXPECT_EQ(at.get(L"z").str(), L"1");
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
