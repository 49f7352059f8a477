#include "http/request_text.h"

#include <gtest/gtest.h>

#include "core/exception.h"

namespace {

TEST(RequestTextTest, TargetJoinsQueryAndParameters) {
  struct Row {
    const wchar_t *path, *extra;
    HttpMap parameters;
    const wchar_t* target;
  };
  const Row rows[] = {
      {L"/c/b.zip", L"", {}, L"/c/b.zip"},
      {L"/c/b.zip", L"?sv=1&sig=x", {}, L"/c/b.zip?sv=1&sig=x"},
      {L"/c/b.zip", L"", {{"comp", "appendblock"}}, L"/c/b.zip?comp=appendblock&"},
      {L"/c/b.zip", L"?sv=1", {{"b", "2"}, {"a", ""}}, L"/c/b.zip?sv=1&a=&b=2&"},
      {L"/c/b.zip", L"?", {{"a", "1"}}, L"/c/b.zip?a=1&"},
      {L"/c/b.zip", L"?sv=1&", {{"a", "1"}}, L"/c/b.zip?sv=1&a=1&"},
      {L"/c/b.zip", L"?sv=1#part", {{"a", "1"}}, L"/c/b.zip?sv=1&a=1&#part"},
      {L"/c/b.zip", L"#part?", {{"a", "1"}}, L"/c/b.zip?a=1&#part?"},
      {L"", L"", {{"a", "1"}}, L"?a=1&"},
      {L"/", L"", {{"n\xC3\xA4me", "as given: %&="}}, L"/?n\x00E4me=as given: %&=&"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(request_text::target(row.path, row.extra, row.parameters), row.target);
  }
  EXPECT_THROW(request_text::target(L"/", L"", {{"a", "\xFF"}}), CORE::coreException);
}

TEST(RequestTextTest, QueryOfExtra) {
  EXPECT_EQ(request_text::queryOf(L""), L"");
  EXPECT_EQ(request_text::queryOf(L"?"), L"");
  EXPECT_EQ(request_text::queryOf(L"?a=1&b#c"), L"a=1&b");
  EXPECT_EQ(request_text::queryOf(L"#c?a"), L"");
}

TEST(RequestTextTest, HeaderBlockRefusesSmuggledLines) {
  std::wstring block = L"old";
  EXPECT_TRUE(request_text::headerBlock({}, block));
  EXPECT_EQ(block, L"");
  EXPECT_TRUE(request_text::headerBlock({{"b", ""}, {"A", "1"}, {"a", "\xE2\x82\xAC x"}}, block));
  EXPECT_EQ(block, L"A:1\r\na:\x20AC x\r\nb:");

  const HttpMap refused[] = {{{"a", "1\r\nx-evil:1"}},
                             {{"a", "1\n"}},
                             {{"a", "\r"}},
                             {{"a\nb", "1"}},
                             {{"a\r", "1"}},
                             {{"ok", "1"}, {"z", std::string("1\0", 2)}},
                             {{std::string("a\0b", 3), "1"}}};
  for (const HttpMap& headers : refused) {
    block = L"old";
    EXPECT_FALSE(request_text::headerBlock(headers, block));
    EXPECT_EQ(block, L"");
  }
  EXPECT_THROW(request_text::headerBlock({{"a", "\xC3"}}, block), CORE::coreException);
}

}  // namespace
