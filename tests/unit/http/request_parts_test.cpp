#include "core/exception.h"
#include "http/request_text.h"
#include "tests/unit/http/http_test.h"

// What a request is made of: URLs, queries, headers, time limits.

namespace {

TEST(RequestPartsTest, CrackedUrls) {
  using Parts = std::tuple<std::uint32_t, std::wstring, std::uint16_t, std::wstring, std::wstring>;
  struct Row {
    const wchar_t* url;
    bool plainDefault;
    Parts parts;
  };
  const Row rows[] = {
      {L"https://h.example/p/q?a=1#f", false, {2, L"h.example", 443, L"/p/q", L"?a=1#f"}},
      {L"http://h.example", false, {1, L"h.example", 80, L"", L""}},
      {L"h.example//p", false, {2, L"h.example", 443, L"//p", L""}},
      {L"h.example/p", true, {1, L"h.example", 80, L"/p", L""}},
      {L"ftp://h .example/", false, {}},
  };
  World world;
  world.windows.system.winHttpLoaded = false;  // its errors are then the system's
  for (const Row& row : rows) {
    Parts parts(9, L"old", 9, L"old", L"old");
    auto& [scheme, host, port, path, extra] = parts;
    const bool cracked = WinHttpRequest::CrackURL(row.url, scheme, host, port, path, extra, row.plainDefault);
    EXPECT_EQ(cracked, row.parts != Parts());
    EXPECT_EQ(parts, row.parts) << row.url;
  }
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::CrackURL(): Unable to parse full URL. error: Message 12006.. "
                                    L"failing url: ftp://h .example/"}));
}

TEST(RequestPartsTest, CanonicalQueryKeepsEveryParameterInByteOrder) {
  const QueryList wanted = {{"B", "2"},    {"comp", "z"}, {"comp", "a%2F"}, {"comp", "set"},
                            {"empty", ""}, {"eq", "a=b"}, {"name", ""},     {"\xC3\xA4", "1"}};
  World world;
  world.request->setQueryParameters({{"comp", "set"}, {"B", "2"}});
  world.request->onFinalize = [&](TestRequest& request) { EXPECT_EQ(request.canonicalQuery(), wanted); };
  EXPECT_TRUE(world.get("https://h/p?comp=z&&\xC3\xA4=1&name&eq=a=b&comp=a%2F&empty=&#comp=f"));
}

TEST(RequestPartsTest, TargetJoinsQueryAndParameters) {
  struct Row {
    const wchar_t* extra;
    HttpMap parameters;
    const wchar_t* target;
  };
  const Row rows[] = {
      {L"?sv=1&sig=x", {}, L"/b?sv=1&sig=x"},
      {L"?sv=1", {{"b", "2"}, {"a", ""}}, L"/b?sv=1&a=&b=2&"},
      {L"?", {{"a", "1"}}, L"/b?a=1&"},
      {L"?sv=1&", {{"a", "1"}}, L"/b?sv=1&a=1&"},
      {L"?sv=1#part", {{"a", "1"}}, L"/b?sv=1&a=1&#part"},
      {L"#part?", {{"a", "1"}}, L"/b?a=1&#part?"},
      {L"", {{"n\xC3\xA4me", "as given: %&="}}, L"/b?n\u00E4me=as given: %&=&"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(request_text::target(L"/b", row.extra, row.parameters), row.target);
  }
  std::wstring block;
  EXPECT_THROW(request_text::target(L"/", L"", {{"a", "\xFF"}}), CORE::coreException);
  EXPECT_THROW(request_text::headerBlock({{"a", "\xC3"}}, block), CORE::coreException);
}

TEST(RequestPartsTest, Timeouts) {
  using Platform = std::array<int, 4>;
  RequestTimeouts timeouts;
  for (const std::uint32_t seconds : {4294967U, 4294968U}) {
    timeouts.setTotalSeconds(seconds);
    EXPECT_EQ(timeouts.total(), 4294967000U);
    EXPECT_EQ(timeouts.forPlatform(), (Platform{858993400, 1717986800, 858993400, 858993400}));
  }
  timeouts.setSeconds({1, 2, 3, 4});
  EXPECT_EQ(timeouts.total(), 10000U);
  timeouts.setMilliseconds({1, 0, 7, 4294967287U});  // the sum just fits
  EXPECT_THROW(timeouts.setMilliseconds({1, 0, 8, 4294967287U}), CORE::coreException);
  EXPECT_THROW(timeouts.setSeconds({4294967, 1, 0, 0}), CORE::coreException);
  EXPECT_EQ(timeouts.total(), 0xFFFFFFFFU) << "what does not fit changes nothing";
  EXPECT_EQ(timeouts.forPlatform(), (Platform{1, 0, 7, -9}));
}

}  // namespace
