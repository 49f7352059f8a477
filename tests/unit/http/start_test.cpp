#include <filesystem>

#include "core/exception.h"
#include "tests/unit/http/http_test.h"

// performAsync up to the send: what it refuses and what it tells WinHTTP.

namespace {

TEST(StartTest, RefusesThrowsAndServesOneExchange) {
  World world;
  EXPECT_THROW(world.get("https://h\xFF/"), CORE::coreException);
  EXPECT_FALSE(world.request->getAsync(kUrl, nullptr));
  for (const char* const url : {"", "http://host.example/", "ftp://host.example/"}) {
    EXPECT_FALSE(world.get(url));
  }
  EXPECT_TRUE(world.get());
  world.settle();
  EXPECT_FALSE(world.get());
  world.request = TestRequest::create();
  world.request->setHeaders({{"x-name", "a\r\nx-evil: 1"}});
  EXPECT_FALSE(world.get());
  world.request = TestRequest::create();
  world.windows.files.writeSparse(kWidePath, std::uint64_t{1} << 32);
  EXPECT_FALSE(world.putFile());
  EXPECT_TRUE(world.request->cancelRequest()) << "nothing to cancel";
  world.request = TestRequest::create();
  EXPECT_THROW(world.request->putFileAsync(kZip, kUrl, "C:\\none.zip", world.completion()),
               std::filesystem::filesystem_error);
  Errors errors = world.errors();
  std::erase_if(errors, [](const auto& error) { return !error.starts_with(L"WinHttpRequest::performAsync(): "); });
  EXPECT_EQ(errors, Errors({L"WinHttpRequest::performAsync(): Invalid callback parameter",
                            L"WinHttpRequest::performAsync(): Empty url",
                            L"WinHttpRequest::performAsync(): Only https is supported",
                            L"WinHttpRequest::performAsync(): Unable to parse url",
                            L"WinHttpRequest::performAsync(): Request was performed before",
                            L"WinHttpRequest::performAsync(): A request header holds a line break or a null character",
                            L"WinHttpRequest::performAsync(): Request data size is too large"}));
  EXPECT_EQ(world.completions, 1);
  EXPECT_EQ(world.windows.winHttp.sentRequests().size(), 1U);
  EXPECT_EQ(world.windows.openHandlesText(), world.before) << "nothing of the starts is left";
}

TEST(StartTest, SecurityFlagsRevocationAndMask) {
  constexpr std::uint32_t kPlain = 0x097F0C00;
  constexpr std::uint32_t kWatching = 0x097F0C10;
  using R = TestRequest;
  struct Row {
    const char* proxy;
    std::vector<std::string> pins;
    void (R::*set)();
    std::uint32_t mask, flags;
    std::size_t revocation = 0;
  };
  const Row rows[] = {
      {"", {}, &R::ignoreCertNameMismatch, kPlain, 0x1000},
      {"", {}, &R::ignoreCertErrors, kPlain, 0x3300},
      {"", {"AB:01"}, &R::ignoreCertNameMismatch, kWatching, 0x1100},
      {"", {"AB:01"}, &R::ignoreCertErrors, kWatching, 0x3300},
      {"", {}, &R::enableRevocationCheck, kPlain, 0, 1},
      {"", {"AB:01"}, &R::enableRevocationCheck, kWatching, 0x100},
      {"proxy:8080", {}, &R::enableRevocationCheck, kWatching, 0},
      {"proxy:8080", {}, &R::ignoreCertNameMismatch, kPlain, 0x1000},
  };
  for (const Row& row : rows) {
    World world;
    world.request->setProxy(row.proxy);
    world.request->setThumbprints(row.pins);
    (world.request.get()->*row.set)();
    EXPECT_TRUE(world.get());
    EXPECT_EQ(world.exchange().callbackMask, row.mask);
    EXPECT_EQ(world.exchange().securityFlags(), row.flags);
    EXPECT_EQ(world.exchange().numberOptions.count(79), row.revocation);
  }
  World world;
  world.request->ignoreCertErrors();
  world.windows.faults.failNth("WinHttpSetOption", 1, 87);
  EXPECT_TRUE(world.get()) << "a failure is only a warning";
  EXPECT_TRUE(world.log.has(CORE::kWarn, L"WinHttpRequest::performAsync(): WinHttpSetOptions failed: 0x57"));
}

// What it is told of proxies, credentials and time limits is looked at where the probe takes them along.
TEST(StartTest, WhatWinHttpIsTold) {
  World world;
  world.request->setHeaders({{"x-b", "2"}, {"X-A", "1"}});
  world.request->setQueryParameters({{"comp", "appendblock"}, {"blob", "a b"}});
  world.request->onFinalize = [](TestRequest& r) { r.headers()["x-late"] = "3"; };
  EXPECT_TRUE(world.get("host.example:8443/c/b.zip?sv=1"));
  const auto told = world.exchange();
  EXPECT_EQ(told.headersText, L"X-A:1\r\nx-b:2\r\nx-late:3");
  EXPECT_EQ(told.path, L"/c/b.zip?sv=1&blob=a b&comp=appendblock&");
  EXPECT_EQ(told.host, L"host.example");
  EXPECT_EQ(told.port, 8443);
  EXPECT_EQ(told.requestFlags, 0x800100U);
  EXPECT_EQ(told.userAgent, L"VXAgent");
  EXPECT_EQ(told.sessionFlags, 0x10000000U);
  EXPECT_EQ(world.request->getUrl(), L"host.example:8443/c/b.zip?sv=1");
}

TEST(StartTest, DefaultsPlainHttpAndContentTypes) {
  std::string types;
  for (std::uint32_t type = 0; type < 10; ++type) {  // the last is none of them
    World world;
    world.request->allowPlainHttp();
    world.request->setProxyBypass(L"*.local");
    world.request->setProxyCredentials(L"user", L"");
    EXPECT_TRUE(world.request->postAsync(ContentType{type}, "http://host.example", "", world.completion()));
    const auto told = world.exchange();
    types += told.header("Content-Type") + " ";
    EXPECT_EQ(told.port, 80);
    EXPECT_EQ(told.requestFlags, 0x100U);
    EXPECT_EQ(told.accessType, 4U);
    EXPECT_EQ(told.bypass, L"") << "a bypass list belongs to a named proxy";
    EXPECT_TRUE(told.textOptions.empty()) << "credentials need a password";
    EXPECT_EQ(told.timeouts, (std::array<int, 4>{30000, 60000, 30000, 30000}));
    EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::performAsync(): Using automatic proxy configuration."));
  }
  EXPECT_EQ(types,
            " text/css text/csv text/html application/json text/plain text/xml application/octet-stream "
            "application/zip  ");
}

}  // namespace
