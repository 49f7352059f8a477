#include "core/base/exception.h"
#include "tests/unit/http/http_test.h"

// performAsync up to the send: what it refuses and what it passes to WinHTTP.

namespace {

TEST(StartTest, RefusesThrowsAndServesOneExchange) {
  World world;
  EXPECT_THROW(world.get("https://h\xFF/"), CORE::coreException);
  EXPECT_FALSE(world.request->getAsync(kUrl, nullptr));
  for (const char* const url : {"", "http://host.example/", "ftp://host.example/"}) {
    EXPECT_FALSE(world.get(url));
  }
  EXPECT_TRUE(world.get());
  world.waitUntilIdle();
  EXPECT_FALSE(world.get());
  world.request = TestRequest::create();
  world.request->setHeaders({{"x-name", "a\r\nx-evil: 1"}});
  EXPECT_FALSE(world.get());
  world.request = TestRequest::create();
  world.windows.files.writeSparse(kWidePath, std::uint64_t{1} << 32);
  EXPECT_FALSE(world.putFile());
  EXPECT_TRUE(world.request->cancelRequest()) << "nothing to cancel";
  EXPECT_TRUE(
      world.logged(L"performAsync(): Invalid callback parameter|performAsync(): Empty url|"
                   L"performAsync(): Only https is supported|CrackURL(): Unable to parse full URL. error: |"
                   L"performAsync(): Unable to parse url|performAsync(): Request was performed before|"
                   L"performAsync(): A request header holds a line break or a null character|"
                   L"performAsync(): Request data size is too large"))
      << world.log.text();
  EXPECT_EQ(world.completions, 1);
  EXPECT_EQ(world.windows.winHttp.sentRequests().size(), 1U);
  EXPECT_EQ(world.windows.openHandlesText(), world.before) << "nothing of the starts is left";
}

TEST(StartTest, WhatWinHttpIsTold) {
  using R = TestRequest;
  const auto full = [](R& r) {
    r.setHeaders({{"x-b", "2"}, {"X-A", "1"}});
    r.setQueryParameters({{"comp", "appendblock"}, {"blob", "a b"}});
    r.onFinalize = [](R& late) { late.headers()["x-late"] = "3"; };
  };
  const auto pinned = [](R& r) { r.addThumbprint("AB:01"), r.ignoreCertNameMismatch(); };
  const auto pinnedAsking = [](R& r) { r.addThumbprint("AB:01"), r.enableRevocationCheck(); };
  const auto proxyAsking = [](R& r) { r.setProxy(L"proxy:8080"), r.enableRevocationCheck(); };
  const std::tuple<const char*, void (*)(R&), const char*> rows[] = {
      {"host.example:8443/c/b.zip?sv=1", full,
       "GET host.example:8443/c/b.zip?sv=1&blob=a b&comp=appendblock& 800100 0 0 97f0c00 4, "
       "X-A:1\r\nx-b:2\r\nx-late:3"},
      {"http://h", [](R& r) { r.allowPlainHttp(); }, "GET h:80 100 0 0 97f0c00 4, "},
      {"https://h/", [](R& r) { r.ignoreCertErrors(); }, "GET h:443/ 800100 3300 0 97f0c00 4, "},
      {"https://h/", [](R& r) { r.enableRevocationCheck(); }, "GET h:443/ 800100 0 1 97f0c00 4, "},
      {"https://h/", pinned, "GET h:443/ 800100 1100 0 97f0c10 4, "},
      {"https://h/", pinnedAsking, "GET h:443/ 800100 100 0 97f0c10 4, "},
      {"https://h/", proxyAsking, "GET h:443/ 800100 0 0 97f0c10 3http://proxy:8080,*.local "},
  };
  for (const auto& [url, set, text] : rows) {
    SCOPED_TRACE(text);
    World world;
    world.request->setProxyBypass(L"*.local");         // belongs to a named proxy
    world.request->setProxyCredentials(L"user", L"");  // need a password
    set(*world.request);
    EXPECT_TRUE(world.get(url));
    const auto seen = world.exchange();
    EXPECT_EQ(settingsOf(seen), text);
    EXPECT_EQ(seen.userAgent, L"VXAgent");
    EXPECT_EQ(seen.sessionFlags, 0x10000000U);
    EXPECT_TRUE(seen.textOptions.empty());
    EXPECT_EQ(seen.timeouts, (std::array<int, 4>{30000, 60000, 30000, 30000}));
  }
  World world;
  world.request->ignoreCertErrors();
  world.windows.faults.failNth("WinHttpSetOption", 1, 87);
  EXPECT_TRUE(world.get()) << "a failure is only a warning";
  EXPECT_TRUE(world.log.has(CORE::kWarn, L"WinHttpRequest::performAsync(): WinHttpSetOptions failed: 0x57"));
}

}  // namespace
