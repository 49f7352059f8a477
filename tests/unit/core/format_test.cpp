#include "core/format.h"

#include <gtest/gtest.h>

namespace {

using CORE::format;
using CORE::formatNarrow;

TEST(Format, ConversionsOfThisProduct) {
  struct Row {
    std::wstring got, want;
  };
  const std::string narrow = "b\xC3\xA4";
  const Row rows[] = {
      {format(L"%s|%S|%5s|%-5s|%.2s", L"wide", narrow, L"ab", L"ab", L"abcdef"), L"wide|b\u00E4|   ab|ab   |ab"},
      {format(L"%d %u %lu %d", -1, -1, 0xFFFFFFFFFFULL, 0xFFFFFFFFU), L"-1 4294967295 4294967295 -1"},
      {format(L"%x %X 0x%x %04X %4.4x %#x", 255, 255, 0x80070005U, 0xABC, 0x409, 16),
       L"ff FF 0x80070005 0ABC 0409 0x10"},
      {format(L"%zu %llu", static_cast<std::size_t>(1) << 40, 1ULL << 40), L"1099511627776 1099511627776"},
      {format(L"Total bytes sent: %ull", (1ULL << 32) + 7), L"Total bytes sent: 7ll"},
      {format(L"%04d%c%02d%c%02d%c%03d", 2026, L'-', 1, '-', 2, L'_', 7), L"2026-01-02_007"},
      {format(L"%p %p", 2, static_cast<void*>(nullptr)), L"0000000000000002 0000000000000000"},
      {format(L"100%% %+d % d %05d %-4d|", 3, 4, -42, 7), L"100% +3  4 -0042 7   |"},
      {format(L"%s %S", static_cast<const wchar_t*>(nullptr), static_cast<const char*>(nullptr)), L"(null) (null)"},
      {format(L"%S", std::string("\xFF\xC3(")), L"\u00FF\u00C3("},
      {format(L"%s", std::wstring(3, L'\0')), std::wstring(3, L'\0')},
      {format(L"%d", INT64_MIN + 5), L"5"},
      {format(L"%lld", INT64_MIN), L"-9223372036854775808"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(row.got, row.want);
  }
  EXPECT_EQ(formatNarrow("%s, %02d %S", "Sun", 3, L"\u00E4\u20AC"), "Sun, 03 \xC3\xA4\xE2\x82\xAC");
}

TEST(Format, MarkedTextsAreNeverShown) {
  CORE::wstr secret(L"hunter2");
  secret.markSecret();
  CORE::mstr key("hunter2");
  key.markSecret();
  const CORE::wstr binary = CORE::wstr::fromBytes("hunter2", 7);
  EXPECT_EQ(format(L"%s %S %s %s", secret, key, binary, CORE::wstr(secret)), L"***** ***** <BINARY> *****");
  EXPECT_EQ(formatNarrow("%S %s", secret, key), "***** *****");
}

TEST(Format, RuntimeMismatchAndLimit) {
  const CORE::FormatArgument number{CORE::FormatKind::kInteger, 5, {}, {}};
  const std::wstring failed = L"<***** VPRINTF EXCEPTION *****>";
  EXPECT_EQ(CORE::formatArguments(L"%s", std::span(&number, 1)), failed);
  EXPECT_EQ(CORE::formatArguments(L"%d %d", std::span(&number, 1)), failed);
  EXPECT_EQ(CORE::formatArguments(L"%y", std::span(&number, 1)), failed);
  EXPECT_EQ(CORE::formatArguments(L"100%", std::span(&number, 1)), failed);
  EXPECT_EQ(CORE::formatArguments(L"%999999999d", std::span(&number, 1), 10), L"          ");
  const std::string huge(50'000'000, 'x');
  const CORE::FormatArgument text{CORE::FormatKind::kNarrow, 0, {}, huge};
  EXPECT_EQ(CORE::formatArguments(L"ab%Scd", std::span(&text, 1), 8192).size(), 8192U);
}

}  // namespace
