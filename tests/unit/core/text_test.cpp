#include "core/text.h"

#include <gtest/gtest.h>

#include "core/convert.h"
#include "tests/sim/windows.h"

namespace {

TEST(Text, EqualityIsThatOfWholeTexts) {
  const sim::Windows windows;
  EXPECT_TRUE(CORE::equalText(L"Name", L"nAME", true));
  EXPECT_FALSE(CORE::equalText(L"Name", L"nAME", false));
  EXPECT_FALSE(CORE::equalText(L"Name", L"Name2", true));
  EXPECT_TRUE(CORE::equalText(L"", L"", false));
  EXPECT_TRUE(CORE::equalNarrow("x-ms", "x-ms"));
  EXPECT_FALSE(CORE::equalNarrow("x-ms", "X-ms"));
  EXPECT_FALSE(CORE::equalNarrow("x-ms", "x-m"));
}

TEST(Text, Pieces) {
  using List = std::vector<std::wstring>;
  EXPECT_EQ(CORE::splitText(L"", L','), List{L""});
  EXPECT_EQ(CORE::splitText(L",a,,b", L','), (List{L"", L"a", L"", L"b"}));
  EXPECT_EQ(CORE::joinStrings({L"", L"a", L"", L"b"}, L", "), L", a, , b");
  EXPECT_EQ(CORE::joinStrings({}, L", "), L"");
  EXPECT_EQ(CORE::trimmed(L" \t\r\n a b \r\n"), L"a b");
  EXPECT_EQ(CORE::trimmed(L" \t"), L"");
}

TEST(Text, Booleans) {
  const sim::Windows windows;
  for (const wchar_t* text : {L"true", L"TRUE", L" Yes\r\n", L"on", L"1", L"-1", L"0x10", L"2 apples"}) {
    EXPECT_TRUE(CORE::textToBool(text)) << CORE::toUtf8Lossy(text);
  }
  for (const wchar_t* text : {L"", L"false", L"no", L"off", L"0", L"00", L"truely", L"x1"}) {
    EXPECT_FALSE(CORE::textToBool(text)) << CORE::toUtf8Lossy(text);
  }
}

}  // namespace
