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
  using List = std::vector<std::wstring>;
  const sim::Windows windows;
  EXPECT_TRUE(CORE::equalText(L"Name", L"nAME", true));
  EXPECT_FALSE(CORE::equalText(L"Name", L"nAME", false));
  EXPECT_FALSE(CORE::equalText(L"Name", L"Name2", true));
  EXPECT_FALSE(CORE::equalNarrow("x-ms", "X-ms"));
  EXPECT_FALSE(CORE::equalNarrow("x-ms", "x-m"));
  EXPECT_EQ(CORE::splitText(L"", L','), List{L""});
  EXPECT_EQ(CORE::splitText(L",a,,b", L','), (List{L"", L"a", L"", L"b"}));
  EXPECT_EQ(CORE::joinStrings({L"", L"a", L"", L"b"}, L", "), L", a, , b");
  for (const wchar_t* text : {L"true", L"TRUE", L" Yes\r\n", L"on", L"1", L"-1", L"0x10", L"2 apples"}) {
    EXPECT_TRUE(CORE::textToBool(text)) << CORE::toUtf8Lossy(text);
  }
  for (const wchar_t* text : {L"", L" \t", L"false", L"no", L"off", L"0", L"00", L"truely", L"x1"}) {
    EXPECT_FALSE(CORE::textToBool(text)) << CORE::toUtf8Lossy(text);
  }
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

template <class F>
std::wstring messageOf(F work) {
  try {
    work();
  } catch (const CORE::coreException& exception) {
    return exception.message();
  }
  return L"";
}

TEST(Convert, BadTextThrowsOrIsShownAsItIs) {
  const std::pair<std::string, std::wstring> rows[] = {
      {"a\x80", L"a\u0080"},
      {"\xC0\xAF", L"\u00C0\u00AF"},            // overlong
      {"\xE0\x9F\xBF", L"\u00E0\u009F\u00BF"},  // overlong
      {"\xED\xA0\x80", L"\u00ED\u00A0\u0080"},  // surrogate
      {"\xF4\x90\x80\x80", L"\u00F4\u0090\u0080\u0080"},
      {"\xE2\x82", L"\u00E2\u0082"},  // cut
      {"\xFF\xC3(", L"\u00FF\u00C3("},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(messageOf([&] { CORE::to_wstr(row.first, CORE::kUtf8); }), L"to_wstr Failed");
    EXPECT_EQ(CORE::toWideLossy(row.first), row.second);
  }
  const std::wstring lone = {static_cast<wchar_t>(0xDC00), L'a', static_cast<wchar_t>(0xD800)};
  EXPECT_EQ(messageOf([&] { CORE::to_mstr(lone, CORE::kUtf8); }), L"to_mstr Failed");
  EXPECT_EQ(CORE::toUtf8Lossy(lone), std::string("\xEF\xBF\xBD") + "a\xEF\xBF\xBD");
  EXPECT_EQ(messageOf([] { CORE::to_mstr(L"a", 1252); }), L"to_mstr Failed");
}

TEST(Format, ConversionsOfThisProduct) {
  const std::pair<std::wstring, std::wstring> rows[] = {
      {format(L"%s|%S|%5s|%-5s|%.2s", L"wide", "b\xC3\xA4", L"ab", L"ab", L"abcdef"), L"wide|b\u00E4|   ab|ab   |ab"},
      {format(L"%d %u %lu %d", -1, -1, 0xFFFFFFFFFFULL, 0xFFFFFFFFU), L"-1 4294967295 4294967295 -1"},
      {format(L"%x %X 0x%x %04X %4.4x %#x", 255, 255, 0x80070005U, 0xABC, 0x409, 16),
       L"ff FF 0x80070005 0ABC 0409 0x10"},
      {format(L"%zu %llu", std::size_t{1} << 40, 1ULL << 40), L"1099511627776 1099511627776"},
      {format(L"Total bytes sent: %ull", (1ULL << 32) + 7), L"Total bytes sent: 7ll"},
      {format(L"%04d%c%02d%c%02d%c%03d", 2026, L'-', 1, '-', 2, L'_', 7), L"2026-01-02_007"},
      {format(L"%p %p", 2, static_cast<void*>(nullptr)), L"0000000000000002 0000000000000000"},
      {format(L"100%% %+d % d %05d %-4d|", 3, 4, -42, 7), L"100% +3  4 -0042 7   |"},
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
  wstr secret(L"hunter2");
  secret.markSecret();
  mstr key("hunter2");
  key.markSecret();
  EXPECT_EQ(format(L"%s %S %s", secret, key, wstr::fromBytes("hunter2", 7)), L"***** ***** <BINARY>");
  EXPECT_EQ(CORE::formatNarrow("%S %s", secret, key), "***** *****");

  const CORE::FormatArgument number{CORE::FormatKind::kInteger, 5, {}, {}};
  for (const wchar_t* bad : {L"%s", L"%d %d", L"%y", L"100%"}) {
    EXPECT_EQ(CORE::formatArguments(bad, std::span(&number, 1)), L"<***** VPRINTF EXCEPTION *****>");
  }
  EXPECT_EQ(CORE::formatArguments(L"%999999999d", std::span(&number, 1), 10), L"          ");
  const std::string huge(50'000'000, 'x');
  const CORE::FormatArgument text{CORE::FormatKind::kNarrow, 0, {}, huge};
  EXPECT_EQ(CORE::formatArguments(L"ab%Scd", std::span(&text, 1), 8192).size(), 8192U);
}

TEST(CoreString, MarksSurviveCopyMoveAndSwap) {
  wstr binary = wstr::fromBytes("\1\2\3", 3);
  binary.markSecret();
  const wstr copy = binary;
  wstr moved = std::move(binary);
  EXPECT_TRUE(binary.empty());  // NOLINT(bugprone-use-after-move): what is left is part of the contract
  EXPECT_EQ(binary.storedLength(), 0U);
  wstr text(L"plain");
  text.swap(moved);
  EXPECT_FALSE(moved.isBinary() || moved.isSecret());
  EXPECT_EQ(moved.str(), L"plain");
  wstr& self = text;
  text = std::move(self);
  moved = copy;
  for (const wstr& marked : {copy, text, moved}) {
    EXPECT_TRUE(marked.isSecret());
    EXPECT_EQ(marked.storedLength(), 0x80000003U);
    EXPECT_EQ(marked.byteLength(), 3U);
  }
  text = wstr(L"new");
  EXPECT_FALSE(text.isBinary() || text.isSecret());
  EXPECT_EQ(text.storedLength(), 3 * sizeof(wchar_t));
}

TEST(CoreString, SecretsAreWipedWhereTheyStood) {
  alignas(mstr) std::array<unsigned char, sizeof(mstr)> place{};
  const auto holdsSecret = [&] {
    return std::string_view(reinterpret_cast<const char*>(place.data()), place.size()).find("unter") !=
           std::string::npos;
  };
  auto* secret = new (place.data()) mstr("hunter2");  // short enough to live inside the object
  secret->markSecret();
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
