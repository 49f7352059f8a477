#include "core/convert.h"

#include <gtest/gtest.h>

#include <functional>

#include "core/exception.h"
#include "tests/sim/registry.h"

namespace {

using CORE::kUtf8;

TEST(Convert, BothWays) {
  struct Row {
    std::string narrow;
    std::wstring wide;
  };
  const Row rows[] = {
      {"", L""},
      {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
      {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80", L"\x7F\u0080\u07FF\u0800"},
      {"\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", L"\uD7FF\uE000\uFFFF"},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\U00010000\U0010FFFF"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(CORE::to_wstr(row.narrow, kUtf8), row.wide);
    EXPECT_EQ(CORE::to_mstr(row.wide, kUtf8), row.narrow);
    EXPECT_EQ(CORE::toWideLossy(row.narrow), row.wide);
    EXPECT_EQ(CORE::toUtf8Lossy(row.wide), row.narrow);
    EXPECT_EQ(CORE::fromUtf16Bytes(sim::utf16Bytes(row.wide, false)), row.wide);
  }
}

TEST(Convert, BadTextThrowsOrIsShownAsItIs) {
  struct Row {
    std::string narrow;
    std::wstring shown;
  };
  const Row rows[] = {
      {"a\x80", L"a\u0080"},
      {"\xC0\xAF", L"\u00C0\u00AF"},            // overlong
      {"\xE0\x9F\xBF", L"\u00E0\u009F\u00BF"},  // overlong
      {"\xED\xA0\x80", L"\u00ED\u00A0\u0080"},  // surrogate
      {"\xF4\x90\x80\x80", L"\u00F4\u0090\u0080\u0080"},
      {"\xE2\x82", L"\u00E2\u0082"},  // cut
      {"\xFF\xC3(", L"\u00FF\u00C3("},
  };
  const auto messageOf = [](const std::function<void()>& work) -> std::wstring {
    try {
      work();
    } catch (const CORE::coreException& exception) {
      return exception.message();
    }
    return L"";
  };
  for (const Row& row : rows) {
    EXPECT_EQ(messageOf([&] { CORE::to_wstr(row.narrow, kUtf8); }), L"to_wstr Failed");
    EXPECT_EQ(CORE::toWideLossy(row.narrow), row.shown);
  }
  const std::wstring lone = {static_cast<wchar_t>(0xDC00), L'a', static_cast<wchar_t>(0xD800)};
  EXPECT_EQ(messageOf([&] { CORE::to_mstr(lone, kUtf8); }), L"to_mstr Failed");
  EXPECT_EQ(CORE::toUtf8Lossy(lone),
            "\xEF\xBF\xBD"
            "a\xEF\xBF\xBD");
  EXPECT_EQ(messageOf([] { CORE::to_mstr(L"a", 1252); }), L"to_mstr Failed");
}

}  // namespace
