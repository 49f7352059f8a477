#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "core/convert.h"
#include "core/property_bag.h"
#include "tests/sim/windows.h"

namespace {

using CORE::PropertyBag;
constexpr std::size_t kNone = std::wstring::npos;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kHuge = 10'000'000;
#else
constexpr std::size_t kHuge = 30'000'000;
#endif

constexpr std::wstring_view kSeparator = L"\x1";

/// The rules one by one, step for step, with recursion: what the product's reader must agree with. The result is the
/// bag's text form; nothing for a failure.
std::optional<std::wstring> referenceParse(const std::wstring& text, std::size_t level = 1) {
  if (text.find(L'"') == kNone) {
    return std::nullopt;
  }
  std::wstring bag;
  std::size_t resume = 0;
  for (;;) {
    const std::size_t nameQuote = text.find(L'"', resume + 1);
    if (nameQuote == kNone) {
      return bag;
    }
    const std::size_t nameEnd = text.find(L'"', nameQuote + 1);
    if (nameEnd == kNone) {
      return std::nullopt;
    }
    const std::wstring name = text.substr(nameQuote + 1, nameEnd - nameQuote - 1);
    const std::size_t p = nameEnd + 1;
    const std::size_t open = text.find(L'{', p);
    const std::size_t quote = text.find(L'"', p + 1);
    if (quote == kNone) {
      return std::nullopt;
    }
    if (open == kNone || quote < open) {
      const std::size_t end = text.find(L'"', quote + 1);
      if (end == kNone) {
        return std::nullopt;
      }
      bag.append(level * 3, L' ').append(name + L" = \"" + text.substr(quote + 1, end - quote)).append(kSeparator);
      resume = end;
      continue;
    }
    std::size_t opens = 1;
    std::size_t closes = 0;
    std::size_t lastOpen = open;
    std::size_t lastClose = open;
    while (closes < opens) {
      lastClose = text.find(L'}', lastClose + 1);
      if (lastClose == kNone) {
        return std::nullopt;
      }
      ++closes;
      for (std::size_t next = text.find(L'{', lastOpen + 1); next < lastClose; next = text.find(L'{', lastOpen + 1)) {
        ++opens;
        lastOpen = next;
      }
    }
    const auto nested = referenceParse(text.substr(open, lastClose - open + 1), level + 1);
    if (!nested) {
      return std::nullopt;
    }
    bag.append(level * 3, L' ').append(name + L" = ").append(kSeparator).append(*nested);
    resume = lastClose + 1;
  }
}

/// A text of the form the reader expects, with the given chance of a stray character at each step.
void appendRandomBag(std::wstring& out, std::mt19937& random, int depth, unsigned strayPercent) {
  constexpr std::wstring_view kAlphabet = L"\"{}a:,= \n";
  const auto below = [&](unsigned n) { return random() % n; };
  const auto stray = [&] {
    if (below(100) < strayPercent) {
      out += kAlphabet[below(static_cast<unsigned>(kAlphabet.size()))];
    }
  };
  out += L'{';
  for (auto i = below(4); i < 4; ++i) {
    stray();
    out += L"\"n\"";
    stray();
    out += L':';
    if (depth > 0 && below(2) == 0) {
      appendRandomBag(out, random, depth - 1, strayPercent);
    } else {
      out += L"\"v";
      stray();
      out += L'"';
    }
    out += L',';
    stray();
  }
  out += L'}';
}

std::wstring randomText(std::mt19937& random, unsigned kind) {
  constexpr std::wstring_view kAlphabet = L"\"{}a:,= \n";
  std::wstring text;
  if (kind == 0) {
    for (auto i = random() % 40; i > 0; --i) {
      text += kAlphabet[random() % kAlphabet.size()];
    }
  } else {
    appendRandomBag(text, random, 3, kind == 1 ? 0 : 3);
  }
  return text;
}

class PropertyBagParseTest : public testing::Test {
 protected:
  sim::Windows windows_;
};

TEST_F(PropertyBagParseTest, KnownTexts) {
  struct Row {
    const wchar_t* text;
    bool ok;
    const wchar_t* form;
  };
  const wchar_t* kept = L"   old = \"entry\"|";
  const Row rows[] = {
      {L"", false, kept},
      {L"{a:5}", false, kept},
      {L"{\"a\":{}}", false, L""},
      {L"{\"a\":\"1\",\"b\":{\"z\":\"2\"}}", true, L"   a = \"1\"|   b = |      z = \"2\"|"},
      {L"\"a\":\"1\"", false, L""},               // the first character is skipped
      {L"\"", true, L""},                         // nothing is left behind it
      {L" \"a\":\"1\"", true, L"   a = \"1\"|"},  // no brace is needed
      {L"{\"a\":5,\"b\":\"1\"}", false, L""},     // 5 is nothing, so "b" is the value of a
      {L"{\"a\":true,\"b\":\"1\",\"c\"}", true, L"   a = \"b\"|   1 = \"c\"|"},
      {L"{\"a\"\"b\" \"c\"}", false, L""},  // the quote right behind a name is not seen
      {L"{\"a\"\"b\"c\"}", true, L"   a = \"c\"|"},
      {L"{\"a\":{\"x\":\"}\"}}", false, L""},                         // a brace in quotes closes as well
      {L"{\"a\":{\"x\":\"{\"}}", true, L"   a = |      x = \"{\"|"},  // and opens: the outer "}" ends the inner bag
      {L"{\"a\":{\"x\":\"{\"}", false, L""},
      {L"{\"a\":{\"x\":\"y\"}\"b\":\"c\"}", false, L""},  // behind a nested bag one is skipped
      {L"{\"a\":{\"x\":\"y\"}}}},\"b\":\"c\"", true, L"   a = |      x = \"y\"|   b = \"c\"|"},
      {L"{\"a\"{\"x\":\"y\"}}", true, L"   a = |      x = \"y\"|"},  // "{" may stand where ":" does
      {L"{\"A\":\"1\",\"a\":\"2\"}", true, L"   A = \"1\"|   a = \"2\"|"},
      {L"{\"a\":{\"x\":\"y\"", false, L""},
      {L"{\"a", false, L""},
      {L"{\"a\"", false, L""},
      {L"{\"a\":\"1", false, L""},
  };
  for (const Row& row : rows) {
    PropertyBag bag;
    bag.add(L"old", L"entry");
    const std::string shown = CORE::toUtf8Lossy(row.text);
    EXPECT_EQ(bag.parse(row.text), row.ok) << shown;
    EXPECT_EQ(CORE::toUtf8Lossy(bag.toString(L"|", false)), CORE::toUtf8Lossy(row.form)) << shown;
  }
}

TEST_F(PropertyBagParseTest, AgreesWithTheRulesOnRandomTexts) {
  std::mt19937 random(20260401);
  int read = 0;
  int nested = 0;
  for (unsigned i = 0; i < 30'000; ++i) {
    const std::wstring text = randomText(random, i % 3);
    const auto expected = referenceParse(text);
    PropertyBag bag;
    ASSERT_EQ(bag.parse(text), expected.has_value()) << CORE::toUtf8Lossy(text);
    ASSERT_EQ(bag.toString(kSeparator, false), expected.value_or(L"")) << CORE::toUtf8Lossy(text);
    read += expected.has_value() ? 1 : 0;
    nested += expected && expected->find(L"      ") != kNone ? 1 : 0;
  }
  EXPECT_GT(read, 5'000);  // or the texts would show nothing
  EXPECT_GT(nested, 3'000);
}

std::wstring repeated(std::wstring_view piece, std::size_t count) {
  std::wstring out;
  out.reserve(piece.size() * count);
  for (std::size_t i = 0; i < count; ++i) {
    out += piece;
  }
  return out;
}

TEST_F(PropertyBagParseTest, HugeTextsTakeNeitherStackNorTime) {
  const std::wstring head = L"{\"a\":\"1\",";
  struct Row {
    const char* name;
    std::wstring text;
    bool ok;
    std::size_t count;
  };
  const Row rows[] = {
      {"opens only", L" \"a\":" + std::wstring(kHuge, L'{') + L"\"b\":\"c\"", false, 0},
      {"closes only", L" \"a\":\"b\"" + std::wstring(kHuge, L'}'), true, 1},
      {"braces in pairs", head + repeated(L"{}", kHuge / 2), true, 1},
      {"braces in a name", head + L"\"" + std::wstring(kHuge / 2, L'{') + std::wstring(kHuge / 2, L'}') + L"\":\"x\"}",
       true, 2},
      {"one long value", head + L"\"b\":\"" + std::wstring(kHuge, L'x') + L"\"}", true, 2},
      {"nothing but filling", head + std::wstring(kHuge, L','), true, 1},
      {"a million entries", L"{" + repeated(L"\"a\":\"b\",", 1'000'000) + L"}", true, 1'000'000},
      {"never closed", L"{" + repeated(L"\"a\":{\"b\":\"c\",", 300'000), false, 0},
  };
  for (const Row& row : rows) {
    PropertyBag bag;
    EXPECT_EQ(bag.parse(row.text), row.ok) << row.name;
    EXPECT_EQ(bag.count(), row.count) << row.name;
  }
}

TEST_F(PropertyBagParseTest, AMillionBagsDeep) {
  constexpr std::size_t kDepth = 1'000'000;
  PropertyBag bag;
  ASSERT_TRUE(bag.parse(L"{" + repeated(L"\"b\":{", kDepth) + L"\"z\":\"1\"" + std::wstring(kDepth + 1, L'}')));
  PropertyBag at = bag;
  for (std::size_t i = 0; i < kDepth; ++i) {
    at = at.getBag(0);
  }
  EXPECT_EQ(at.get(L"z").str(), L"1");
}

}  // namespace
