#include <filesystem>

#include "core/exception.h"
#include "tests/unit/http/http_test.h"

// performAsync up to the send: what it refuses and what it tells WinHTTP.

namespace {

TEST(StartTest, RefusesWithoutSending) {
  struct Row {
    const char* url;
    const wchar_t* error;
    std::function<void(World&)> prepare = [](World&) {};
  };
  const Row rows[] = {
      {"", L"Empty url"},
      {"http://host.example/", L"Only https is supported"},
      {"ftp://host.example/", L"Unable to parse url"},
      {kUrl, L"Pre-flight certificate verification failed for https://host.example/c/b.zip?sv=1",
       [](World& w) { w.request->preflight = false; }},
      {kUrl, L"Request data size is too large",
       [](World& w) { w.windows.files.writeSparse(kWidePath, std::uint64_t{1} << 32); }},
      {kUrl, L"A request header holds a line break or a null character",
       [](World& w) {
         w.request->setHeaders({{"x-name", "a\r\nx-evil: 1"}});
       }},
  };
  for (const Row& row : rows) {
    World world;
    row.prepare(world);
    EXPECT_FALSE(world.request->putFileAsync(kZip, row.url, kPath, world.completion()));
    EXPECT_EQ(world.errors().back(), std::wstring(L"WinHttpRequest::performAsync(): ") + row.error);
    EXPECT_EQ(world.completions, 0);
    EXPECT_TRUE(world.windows.winHttp.sentRequests().empty());
    EXPECT_EQ(world.windows.openHandlesText(), world.before) << "nothing of the start is left";
    EXPECT_TRUE(world.request->cancelRequest()) << "nothing to cancel";
  }
}

TEST(StartTest, ThrowsAndServesOneExchange) {
  World world;
  EXPECT_THROW(world.get("https://h\xFF/"), CORE::coreException);
  EXPECT_FALSE(world.request->getAsync(kUrl, nullptr));
  EXPECT_TRUE(world.get());
  world.settle();
  EXPECT_FALSE(world.get());
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performAsync(): Invalid callback parameter",
                                    L"WinHttpRequest::performAsync(): Request was performed before"}));
  EXPECT_EQ(world.completions, 1);
  world.request = TestRequest::create();
  EXPECT_THROW(world.request->putFileAsync(kZip, kUrl, "C:\\none.zip", world.completion()),
               std::filesystem::filesystem_error);
  EXPECT_EQ(world.windows.openHandlesText(), world.before);
}

TEST(StartTest, SecurityFlagsRevocationAndMask) {
  constexpr std::uint32_t kPlain = 0x097F0C00;
  constexpr std::uint32_t kWatching = 0x097F0C10;
  using R = TestRequest;
  struct Row {
    std::vector<std::string> pins;
    const char* proxy;
    std::vector<void (R::*)()> set;
    std::uint32_t mask, flags;
    std::size_t revocation;
  };
  const Row rows[] = {
      {{}, "", {}, kPlain, 0, 0},
      {{}, "", {&R::ignoreCertNameMismatch}, kPlain, 0x1000, 0},
      {{}, "", {&R::ignoreCertErrors}, kPlain, 0x3300, 0},
      {{"AB:01"}, "", {}, kWatching, 0x100, 0},
      {{"AB:01"}, "", {&R::ignoreCertNameMismatch}, kWatching, 0x1100, 0},
      {{"AB:01"}, "", {&R::ignoreCertErrors}, kWatching, 0x3300, 0},
      {{}, "", {&R::enableRevocationCheck}, kPlain, 0, 1},
      {{"AB:01"}, "", {&R::enableRevocationCheck}, kWatching, 0x100, 0},
      {{}, "proxy:8080", {&R::enableRevocationCheck}, kWatching, 0, 0},
      {{}, "", {&R::makeProbe}, kWatching, 0, 0},
  };
  for (const Row& row : rows) {
    for (const bool fails : {false, row.flags != 0}) {
      World world;
      world.request->setThumbprints(row.pins);
      world.request->setProxy(row.proxy);
      for (const auto set : row.set) {
        (world.request.get()->*set)();
      }
      if (fails) {
        world.windows.faults.failNth("WinHttpSetOption", 1, 87);
      }
      EXPECT_TRUE(world.get()) << "a failure is only a warning";
      EXPECT_EQ(world.exchange().callbackMask, row.mask);
      EXPECT_EQ(world.exchange().securityFlags(), fails ? 0 : row.flags);
      EXPECT_EQ(world.exchange().numberOptions.count(79), row.revocation);
      EXPECT_EQ(world.log.has(CORE::kWarn, L"WinHttpRequest::performAsync(): WinHttpSetOptions failed: 0x57"), fails);
    }
  }
}

TEST(StartTest, WhatWinHttpIsTold) {
  World world;
  TestRequest& request = *world.request;
  request.setHeaders({{"x-b", "2"}, {"X-A", "1"}});
  request.setQueryParameters({{"comp", "appendblock"}, {"blob", "a b"}});
  request.setProxy("proxy:8080");
  request.setProxyBypass("*.local");
  request.setProxyCredentials("us\xC3\xA9r", L"password");
  request.setTimeoutsMs(1, 2, 3, 4);
  request.onFinalize = [](TestRequest& r) { r.headers()["x-late"] = "3"; };
  EXPECT_TRUE(request.getAsync("host.example:8443/c/b.zip?sv=1", world.completion()));
  const auto told = world.exchange();
  EXPECT_EQ(told.headersText, L"X-A:1\r\nx-b:2\r\nx-late:3");
  EXPECT_EQ(told.path, L"/c/b.zip?sv=1&blob=a b&comp=appendblock&");
  EXPECT_EQ(told.host, L"host.example");
  EXPECT_EQ(told.port, 8443);
  EXPECT_EQ(told.requestFlags, 0x800100U);
  EXPECT_EQ(told.userAgent, L"VXAgent");
  EXPECT_EQ(told.accessType, 3U);
  EXPECT_EQ(told.proxy, L"http://proxy:8080");
  EXPECT_EQ(told.bypass, L"*.local");
  EXPECT_EQ(told.sessionFlags, 0x10000000U);
  EXPECT_EQ(told.timeouts, (std::array<int, 4>{1, 2, 3, 4}));
  EXPECT_EQ(told.textOptions.at(0x1002), L"us\u00E9r");
  EXPECT_EQ(told.textOptions.at(0x1003), L"password");
  EXPECT_EQ(request.getUrl(), L"host.example:8443/c/b.zip?sv=1");
  EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::performAsync(): Using proxy server: http://proxy:8080"));
}

TEST(StartTest, DefaultsAndPlainHttp) {
  World world;
  world.request->allowPlainHttp();
  world.request->setProxyBypass(L"*.local");
  world.request->setProxyCredentials(L"user", L"");
  EXPECT_TRUE(world.get("http://host.example"));
  const auto told = world.exchange();
  EXPECT_EQ(told.port, 80);
  EXPECT_EQ(told.requestFlags, 0x100U);
  EXPECT_EQ(told.accessType, 4U);
  EXPECT_EQ(told.bypass, L"") << "a bypass list belongs to a named proxy";
  EXPECT_TRUE(told.textOptions.empty()) << "credentials need a password";
  EXPECT_EQ(told.timeouts, (std::array<int, 4>{30000, 60000, 30000, 30000}));
  EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::performAsync(): Using automatic proxy configuration."));
}

TEST(StartTest, ContentTypes) {
  std::string headers;
  for (std::uint32_t type = 0; type < 10; ++type) {  // the last is none of them
    World world;
    EXPECT_TRUE(world.request->postAsync(ContentType{type}, kUrl, "", world.completion()));
    headers += world.exchange().header("Content-Type") + " ";
  }
  EXPECT_EQ(headers,
            " text/css text/csv text/html application/json text/plain text/xml application/octet-stream "
            "application/zip  ");
}

}  // namespace
