#include <gtest/gtest.h>

#include <array>
#include <new>

#include "core/base/unicode.h"
#include "core/format/format.h"
#include "core/text/convert.h"
#include "tests/sim/registry.h"

namespace {

using CORE::format;
using CORE::mstr;
using CORE::wstr;

TEST(Convert, BothWaysAndInvalidTexts) {
  const std::string narrow = std::string("\0", 1) + "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80" +
                             "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  const std::wstring wide = std::wstring(1, L'\0') + L"\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF";
  EXPECT_EQ(CORE::to_wstr(narrow, CORE::kUtf8), wide);
  EXPECT_EQ(CORE::to_mstr(wide, CORE::kUtf8), narrow);
  EXPECT_EQ(CORE::toUtf8Lossy(wide), narrow);
  EXPECT_EQ(CORE::fromUtf16Bytes(sim::utf16Bytes(wide, false)), wide);
  const std::tuple<const char*, std::string, std::wstring> bad[] = {
      {"no first byte", "\x7F\x80", L"\x7F\u0080"},
      {"overlong", "\xC0\xAF", L"\u00C0\u00AF"},
      {"surrogate", "\xED\xA0\x80", L"\u00ED\u00A0\u0080"},
      {"above U+10FFFF", "\xF4\x90\x80\x80", L"\u00F4\u0090\u0080\u0080"},
      {"cut", "\xE2\x82", L"\u00E2\u0082"},
  };
  for (const auto& [name, text, shown] : bad) {
    EXPECT_THROW(CORE::to_wstr(text, CORE::kUtf8), CORE::coreException) << name;
    EXPECT_EQ(CORE::toWideLossy(narrow + text), wide + shown) << name;
  }
  const std::wstring lone = {static_cast<wchar_t>(0xDC00), L'a', static_cast<wchar_t>(0xD800)};
  EXPECT_THROW(CORE::to_mstr(lone, CORE::kUtf8), CORE::coreException);
  EXPECT_EQ(CORE::toUtf8Lossy(lone), "\xEF\xBF\xBD\x61\xEF\xBF\xBD");
}

// The fuzz target compares the conversions that the C library has too.
TEST(Format, ConversionsOfThisProduct) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {format(L"%s|%S|%lu", L"wide", "b\xC3\xA4", 0xFFFFFFFFFFULL), L"wide|b\u00E4|4294967295"},
      {format(L"Total bytes sent: %ull %zu", (1ULL << 32) + 7, std::size_t{1} << 40),
       L"Total bytes sent: 7ll 1099511627776"},
      {format(L"%c%c%% %p", L'-', 'x', 2), L"-x% 0000000000000002"},
      {format(L"%s %S", static_cast<const wchar_t*>(nullptr), static_cast<const char*>(nullptr)), L"(null) (null)"},
      {format(L"%S%s", "\xFF\xC3(", std::wstring(1, L'\0')), std::wstring(L"\u00FF\u00C3(\0", 4)},
      {format(L"%s %S %s", wstr::secret(L"hunter2"), mstr::secret("hunter2"), wstr::fromBytes("hunter2", 7)),
       L"***** ***** <BINARY>"},
  };
  for (const auto& [got, want] : rows) {
    EXPECT_EQ(got, want);
  }
  EXPECT_EQ(CORE::formatNarrow("%s, %02d %S %S", "Sun", 3, L"\u00E4", wstr::secret(L"x")), "Sun, 03 \xC3\xA4 *****");
  const CORE::FormatArgument number{CORE::FormatKind::kInteger, 5, {}, {}};
  for (const wchar_t* bad : {L"%s", L"%d %d", L"%y", L"100%"}) {
    EXPECT_EQ(CORE::formatArguments(bad, std::span(&number, 1)), L"<***** VPRINTF EXCEPTION *****>") << bad;
  }
  EXPECT_EQ(CORE::formatArguments(L"%999999999d", std::span(&number, 1), 10), L"          ");
}

TEST(CoreString, SecretsAreWipedWhereTheyWere) {
  alignas(mstr) std::array<char, sizeof(mstr)> place{};
  const auto holdsSecret = [&] {
    return std::string_view(place.data(), place.size()).find("unter") != std::string::npos;
  };
  auto* secret = new (place.data()) mstr(mstr::secret("hunter2"));  // short enough for the object itself
  const mstr taken = std::move(*secret);
  EXPECT_TRUE(taken.isSecret() && !holdsSecret());
  *secret = taken;
  EXPECT_TRUE(secret->isSecret() && holdsSecret());
  *secret = mstr();
  EXPECT_FALSE(holdsSecret());
  secret->~mstr();
}

}  // namespace
