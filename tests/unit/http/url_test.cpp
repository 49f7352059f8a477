#include "http/wininet_url.h"
#include "tests/unit/http/http_test.h"

namespace {

class UrlTest : public HttpTest {};

TEST_F(UrlTest, CrackURL) {
  struct Row {
    const wchar_t* url;
    bool plainDefault;
    bool result;
    std::uint32_t scheme;
    const wchar_t* host;
    std::uint16_t port;
    const wchar_t *path, *extra;
  };
  const Row rows[] = {
      {L"https://h.example/p/q?a=1#f", false, true, 2, L"h.example", 443, L"/p/q", L"?a=1#f"},
      {L"http://h.example", false, true, 1, L"h.example", 80, L"", L""},
      {L"h.example/p", false, true, 2, L"h.example", 443, L"/p", L""},
      {L"h.example/p", true, true, 1, L"h.example", 80, L"/p", L""},
      {L"https://h.example:444/p", true, true, 2, L"h.example", 444, L"/p", L""},
      {L"h.example//p", false, true, 2, L"h.example", 443, L"//p", L""},
      {L"ftp://h.example/", false, false, 0, L"", 0, L"", L""},
  };
  World world;
  for (const Row& row : rows) {
    std::uint32_t scheme = 9;
    std::uint16_t port = 9;
    std::wstring host = L"old", path = L"old", extra = L"old";
    EXPECT_EQ(WinHttpRequest::CrackURL(row.url, scheme, host, port, path, extra, row.plainDefault), row.result);
    EXPECT_EQ(scheme, row.scheme);
    EXPECT_EQ(host, row.host);
    EXPECT_EQ(port, row.port);
    EXPECT_EQ(path, row.path);
    EXPECT_EQ(extra, row.extra);
  }
}

TEST_F(UrlTest, CrackURLTextFallsBackToTheSystemTable) {
  World world;
  world.windows.system.winHttpLoaded = false;
  std::uint32_t scheme = 0;
  std::uint16_t port = 0;
  std::wstring host, path, extra;
  EXPECT_FALSE(WinHttpRequest::CrackURL(L"ftp://h", scheme, host, port, path, extra, false));
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::CrackURL(): Unable to parse full URL. error: Message 12006.. "
                                    L"failing url: ftp://h"}));
}

TEST_F(UrlTest, WinInetCrackUrl) {
  struct Row {
    const wchar_t* url;
    bool plainDefault;
    bool result;
    const wchar_t *scheme, *host;
    std::uint16_t port;
    const wchar_t* path;
  };
  const Row rows[] = {
      {L"https://h.example/p?a", false, true, L"https", L"h.example", 443, L"/p"},
      {L"h.example/p", false, true, L"https", L"h.example", 443, L"/p"},
      {L"h.example/p", true, true, L"http", L"h.example", 80, L"/p"},
      {L"https://h.example/p?a= b", false, false, L"", L"", 0, L""},
      {L"h.example//p", false, false, L"", L"", 0, L""},  // "//" anywhere counts as a scheme
  };
  World world;
  for (const Row& row : rows) {
    std::uint16_t port = 9;
    std::wstring scheme = L"old", host = L"old", path = L"old";
    EXPECT_EQ(util::WinInet::CrackUrl(row.url, scheme, host, port, path, row.plainDefault), row.result) << row.url;
    EXPECT_EQ(scheme, row.scheme);
    EXPECT_EQ(host, row.host);
    EXPECT_EQ(port, row.port);
    EXPECT_EQ(path.substr(0, 2), row.path);
  }
  const auto errors = world.errors();
  ASSERT_EQ(errors.size(), 2U);
  EXPECT_EQ(errors[0], L"util::WinInet::CrackUrl(): Spaces are not supported.");
  EXPECT_TRUE(errors[1].starts_with(L"util::WinInet::CrackUrl(): InternetCrackUrl failed. Error: Message "));
}

TEST_F(UrlTest, CanonicalQueryKeepsEveryParameterInByteOrder) {
  World world;
  world.request->setQueryParameters({{"comp", "set"}, {"B", "2"}});
  world.request->onFinalize = [](TestRequest& request) {
    EXPECT_EQ(request.canonicalQuery(), QueryList({{"B", "2"},
                                                   {"comp", "z"},
                                                   {"comp", "a%2F"},
                                                   {"comp", "set"},
                                                   {"empty", ""},
                                                   {"eq", "a=b"},
                                                   {"name", ""},
                                                   {"\xC3\xA4", "1"}}));
    EXPECT_EQ(request.bodyLength(), 0U);
  };
  EXPECT_TRUE(world.request->getAsync("https://h/p?comp=z&&\xC3\xA4=1&name&eq=a=b&comp=a%2F&empty=&#comp=f",
                                      world.completions.function()));
}

}  // namespace
