#include "core/exception.h"
#include "http/request_text.h"
#include "http/win_cert_implementation.h"
#include "http/wininet_url.h"
#include "tests/unit/http/http_test.h"

// What a request is made of: URLs, queries, headers, time limits, pins.

namespace {

TEST(RequestPartsTest, BothWaysToCrackAUrl) {
  using Parts = std::tuple<std::uint32_t, std::wstring, std::uint16_t, std::wstring, std::wstring>;
  struct Row {
    const wchar_t* url;
    bool plainDefault;
    Parts parts;
    const wchar_t* winInetScheme;  // empty: refuses it
  };
  const Row rows[] = {
      {L"https://h.example/p/q?a=1#f", false, {2, L"h.example", 443, L"/p/q", L"?a=1#f"}, L"https"},
      {L"http://h.example", false, {1, L"h.example", 80, L"", L""}, L"http"},
      {L"h.example/p", false, {2, L"h.example", 443, L"/p", L""}, L"https"},
      {L"h.example/p", true, {1, L"h.example", 80, L"/p", L""}, L"http"},
      {L"https://h.example:444/p", true, {2, L"h.example", 444, L"/p", L""}, L"https"},
      {L"h.example//p", false, {2, L"h.example", 443, L"//p", L""}, L""},  // "//" anywhere counts as a scheme
      {L"ftp://h .example/", false, {}, L""},
  };
  World world;
  world.windows.system.winHttpLoaded = false;  // its errors are then the system's
  for (const Row& row : rows) {
    Parts parts(9, L"old", 9, L"old", L"old");
    auto& [scheme, host, port, path, extra] = parts;
    const bool cracked = WinHttpRequest::CrackURL(row.url, scheme, host, port, path, extra, row.plainDefault);
    EXPECT_EQ(cracked, row.parts != Parts());
    EXPECT_EQ(parts, row.parts) << row.url;

    std::wstring name = L"old", host2 = L"old", path2 = L"old";
    std::uint16_t port2 = 9;
    const bool taken = util::WinInet::CrackUrl(row.url, name, host2, port2, path2, row.plainDefault);
    EXPECT_EQ(name, row.winInetScheme);
    EXPECT_EQ(taken, !name.empty());
    EXPECT_EQ(host2, taken ? host : L"");
    EXPECT_EQ(port2, taken ? port : 0);
    EXPECT_EQ(path2.substr(0, path.size()), taken ? path : L"") << row.url;
  }
  EXPECT_EQ(world.errors(), Errors({L"util::WinInet::CrackUrl(): InternetCrackUrl failed. Error: Message 12006..",
                                    L"WinHttpRequest::CrackURL(): Unable to parse full URL. error: Message 12006.. "
                                    L"failing url: ftp://h .example/",
                                    L"util::WinInet::CrackUrl(): Spaces are not supported."}));
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
    const wchar_t *path, *extra;
    HttpMap parameters;
    const wchar_t* target;
  };
  const Row rows[] = {
      {L"/c/b.zip", L"?sv=1&sig=x", {}, L"/c/b.zip?sv=1&sig=x"},
      {L"/c/b.zip", L"", {{"comp", "appendblock"}}, L"/c/b.zip?comp=appendblock&"},
      {L"/c/b.zip", L"?sv=1", {{"b", "2"}, {"a", ""}}, L"/c/b.zip?sv=1&a=&b=2&"},
      {L"/c/b.zip", L"?", {{"a", "1"}}, L"/c/b.zip?a=1&"},
      {L"/c/b.zip", L"?sv=1&", {{"a", "1"}}, L"/c/b.zip?sv=1&a=1&"},
      {L"/c/b.zip", L"?sv=1#part", {{"a", "1"}}, L"/c/b.zip?sv=1&a=1&#part"},
      {L"/c/b.zip", L"#part?", {{"a", "1"}}, L"/c/b.zip?a=1&#part?"},
      {L"", L"", {{"n\xC3\xA4me", "as given: %&="}}, L"?n\u00E4me=as given: %&=&"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(request_text::target(row.path, row.extra, row.parameters), row.target);
  }
  EXPECT_THROW(request_text::target(L"/", L"", {{"a", "\xFF"}}), CORE::coreException);
}

TEST(RequestPartsTest, HeaderBlockRefusesSmuggledLines) {
  std::wstring block = L"old";
  EXPECT_TRUE(request_text::headerBlock({{"b", ""}, {"A", "1"}, {"a", "\xE2\x82\xAC x"}}, block));
  EXPECT_EQ(block, L"A:1\r\na:\x20AC x\r\nb:");
  for (const char* const breaking : {"1\r\nx-evil:1", "1\n", "\r", "\0"}) {
    const std::string text(breaking, std::max<std::size_t>(1, std::string_view(breaking).size()));
    for (const HttpMap& headers : {HttpMap{{"ok", "1"}, {"z", text}}, HttpMap{{text, "1"}}}) {
      block = L"old";
      EXPECT_FALSE(request_text::headerBlock(headers, block));
      EXPECT_EQ(block, L"");
    }
  }
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
  timeouts.setTotalSeconds(2);
  EXPECT_EQ(timeouts.forPlatform(), (Platform{400, 800, 400, 400}));
}

// The digest of "abc": FIPS 180-2, appendix B.1.
TEST(RequestPartsTest, ThumbprintsAreSha256InUpperCasePairs) {
  World world;
  const auto abc = world.windows.certificates.certificateOf({"abc"});
  EXPECT_EQ(WinCertImplementation::GetThumbprints({abc.get()}),
            std::vector<std::string>({"BA:78:16:BF:8F:01:CF:EA:41:41:40:DE:5D:AE:22:23:B0:03:61:A3:96:17:7A:9C:B4:10:"
                                      "FF:61:F2:00:15:AD"}));
  world.windows.faults.failNth("BCryptFinishHash", 1, 5);
  world.request->setThumbprintsFromCerts({abc.get(), nullptr, abc.get()});
  EXPECT_EQ(
      world.log.count(L"WinCertImplementation::GetThumbprintBinary::<lambda_1>::operator ()(): GenerateHash failed."),
      2U);
  EXPECT_EQ(world.log.count(L"WinCertImplementation::GetThumbprints(): Unable to generate hash for certificate:"), 2U);
  EXPECT_TRUE(world.get());
  EXPECT_EQ(world.exchange().securityFlags(), 0x100U) << "one pin is left";
}

}  // namespace
