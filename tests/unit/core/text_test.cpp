#include "core/text.h"

#include <gtest/gtest.h>

#include <array>
#include <new>

#include "core/convert.h"
#include "core/exception.h"
#include "core/format.h"
#include "core/string.h"
#include "tests/sim/registry.h"
#include "tests/sim/windows.h"

namespace {

using CORE::format;
using CORE::mstr;
using CORE::wstr;

TEST(Text, EqualityPiecesAndBooleans) {
  const sim::Windows windows;
  EXPECT_FALSE(CORE::equalText(L"Name", L"nAME", false));
  EXPECT_FALSE(CORE::equalNarrow("x-ms", "X-ms"));
  EXPECT_EQ(CORE::splitText(L"", L',').size(), 1U);
  EXPECT_EQ(CORE::joinStrings(CORE::splitText(L",a,,b", L','), L"; "), L"; a; ; b");
  for (const std::wstring text : {L"true", L" Yes\r\n", L"ON", L"-1", L"0x10", L"2 apples"}) {
    EXPECT_TRUE(CORE::textToBool(text) && !CORE::textToBool(L"x" + text)) << CORE::toUtf8Lossy(text);
  }
  EXPECT_FALSE(CORE::textToBool(L" \t") || CORE::textToBool(L"00") || CORE::textToBool(L"truely"));
}

TEST(Convert, BothWays) {
  const std::string narrow = std::string("\0", 1) + "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80" +
                             "\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
  const std::wstring wide = std::wstring(1, L'\0') + L"\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF";
  EXPECT_EQ(CORE::to_wstr(narrow, CORE::kUtf8), wide);
  EXPECT_EQ(CORE::to_mstr(wide, CORE::kUtf8), narrow);
  EXPECT_EQ(CORE::toWideLossy(narrow), wide);
  EXPECT_EQ(CORE::toUtf8Lossy(wide), narrow);
  EXPECT_EQ(CORE::fromUtf16Bytes(sim::utf16Bytes(wide, false)), wide);
}

TEST(Convert, BadTextThrowsOrIsShownAsItIs) {
  const std::pair<std::string, std::wstring> rows[] = {
      {"a\x80", L"a\u0080"},
      {"\xC0\xAF", L"\u00C0\u00AF"},            // overlong
      {"\xED\xA0\x80", L"\u00ED\u00A0\u0080"},  // surrogate
      {"\xF4\x90\x80\x80", L"\u00F4\u0090\u0080\u0080"},
      {"\xE2\x82", L"\u00E2\u0082"},  // cut
      {"\xFF\xC3(", L"\u00FF\u00C3("},
  };
  for (const auto& [narrow, wide] : rows) {
    EXPECT_THROW(CORE::to_wstr(narrow, CORE::kUtf8), CORE::coreException);
    EXPECT_EQ(CORE::toWideLossy(narrow), wide);
  }
  const std::wstring lone = {static_cast<wchar_t>(0xDC00), L'a', static_cast<wchar_t>(0xD800)};
  EXPECT_THROW(CORE::to_mstr(lone, CORE::kUtf8), CORE::coreException);
  EXPECT_EQ(CORE::toUtf8Lossy(lone), std::string("\xEF\xBF\xBD") + "a\xEF\xBF\xBD");
  EXPECT_THROW(CORE::to_mstr(L"a", 1252), CORE::coreException);
}

TEST(Format, ConversionsOfThisProduct) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {format(L"%s|%S|%5s", L"wide", "b\xC3\xA4", L"ab"), L"wide|b\u00E4|   ab"},
      {format(L"%d %u %lu %zu", -1, -1, 0xFFFFFFFFFFULL, std::size_t{1} << 40),
       L"-1 4294967295 4294967295 1099511627776"},
      {format(L"Total bytes sent: %ull", (1ULL << 32) + 7), L"Total bytes sent: 7ll"},
      {format(L"%c%c%% %p", L'-', 'x', 2), L"-x% 0000000000000002"},
      {format(L"%s %S", static_cast<const wchar_t*>(nullptr), static_cast<const char*>(nullptr)), L"(null) (null)"},
      {format(L"%S%s", "\xFF\xC3(", std::wstring(1, L'\0')), std::wstring(L"\u00FF\u00C3(\0", 4)},
      {format(L"%d %lld", INT64_MIN + 5, INT64_MIN), L"5 -9223372036854775808"},
  };
  for (const auto& [got, want] : rows) {
    EXPECT_EQ(got, want);
  }
  EXPECT_EQ(CORE::formatNarrow("%s, %02d %S", "Sun", 3, L"\u00E4\u20AC"), "Sun, 03 \xC3\xA4\xE2\x82\xAC");
}

TEST(Format, MarkedTextsMismatchesAndTheLimit) {
  const wstr secret = wstr::secret(L"hunter2");
  const mstr key = mstr::secret("hunter2");
  EXPECT_EQ(format(L"%s %S %s", secret, key, wstr::fromBytes("hunter2", 7)), L"***** ***** <BINARY>");
  EXPECT_EQ(CORE::formatNarrow("%S %s", secret, key), "***** *****");

  const CORE::FormatArgument number{CORE::FormatKind::kInteger, 5, {}, {}};
  for (const wchar_t* bad : {L"%s", L"%d %d", L"%y", L"100%"}) {
    EXPECT_EQ(CORE::formatArguments(bad, std::span(&number, 1)), L"<***** VPRINTF EXCEPTION *****>");
  }
  EXPECT_EQ(CORE::formatArguments(L"%999999999d", std::span(&number, 1), 10), L"          ");
}

TEST(CoreString, MarksSurviveCopyMoveAndSwap) {
  wstr binary = wstr::fromBytes("\1\2\3", 3);
  binary.markSecret();
  const wstr copy = binary;
  wstr plain(L"plain");
  plain.swap(binary);
  EXPECT_FALSE(binary.isBinary() || binary.isSecret());
  EXPECT_EQ(binary.str(), L"plain");
  wstr& self = plain;
  plain = std::move(self);
  binary = copy;
  for (const wstr& marked : {copy, plain, binary, wstr(std::move(plain))}) {
    EXPECT_TRUE(marked.isSecret() && marked.storedLength() == 0x80000003U && marked.byteLength() == 3);
  }
}

TEST(CoreString, SecretsAreWipedWhereTheyStood) {
  alignas(mstr) std::array<char, sizeof(mstr)> place{};
  const auto holdsSecret = [&] {
    return std::string_view(place.data(), place.size()).find("unter") != std::string::npos;
  };
  auto* secret = new (place.data()) mstr(mstr::secret("hunter2"));  // short enough to live inside the object
  const mstr taken = std::move(*secret);
  EXPECT_FALSE(holdsSecret());
  *secret = taken;
  EXPECT_TRUE(holdsSecret());
  *secret = mstr();
  EXPECT_FALSE(holdsSecret());
  secret->~mstr();
  EXPECT_EQ(taken.str(), "hunter2");
}

}  // namespace
