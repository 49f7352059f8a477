#include <filesystem>

#include "core/exception.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// performAsync up to the send: what it refuses, what it tells WinHTTP, and what each failing call does to it.

namespace {

constexpr std::wstring_view kStart = L"WinHttpRequest::performAsync(): ";

class StartTest : public HttpTest {};

TEST_F(StartTest, RefusesWithoutSending) {
  struct Row {
    const char* url;
    bool completion;
    Errors errors;
  };
  const Row rows[] = {
      {kUrl, false, {L"WinHttpRequest::performAsync(): Invalid callback parameter"}},
      {"", true, {L"WinHttpRequest::performAsync(): Empty url"}},
      {"http://host.example/", true, {L"WinHttpRequest::performAsync(): Only https is supported"}},
      {"ftp://host.example/",
       true,
       {L"WinHttpRequest::CrackURL(): Unable to parse full URL. error: WinHTTP message 12006.. failing url: "
        L"ftp://host.example/",
        L"WinHttpRequest::performAsync(): Unable to parse url"}},
  };
  for (const Row& row : rows) {
    World world;
    EXPECT_FALSE(world.request->getAsync(row.url, row.completion ? world.completions.function() : nullptr));
    EXPECT_EQ(world.errors(), row.errors);
    EXPECT_EQ(world.completions.count(), 0);
    EXPECT_TRUE(world.windows.winHttp.requests().empty());
    EXPECT_TRUE(world.request->cancelRequest()) << "nothing to cancel";
  }
}

TEST_F(StartTest, RefusesTextsThatAreNotUtf8AndASecondPerform) {
  World world;
  EXPECT_THROW(world.request->getAsync("https://h\xFF/", world.completions.function()), CORE::coreException);
  EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function()));
  world.settle();
  EXPECT_FALSE(world.request->getAsync(kUrl, world.completions.function()));
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performAsync(): Request was performed before"}));
  EXPECT_EQ(world.completions.count(), 1);
}

TEST_F(StartTest, EachFailingCallEndsTheStart) {
  struct Row {
    const char* call;
    std::size_t nth;
    const wchar_t* message;
  };
  const Row rows[] = {
      {"WinHttpOpen", 1, L"WinHttpOpen failed: Message 8."},
      {"WinHttpSetTimeouts", 1, L"WinHttpSetTimeouts failed: 0x8"},
      {"WinHttpSetStatusCallback", 1, L"Failed to set status callback"},
      {"WinHttpConnect", 1, L"WinHttpConnect failed: 0x8"},
      {"WinHttpOpenRequest", 1, L"WinHttpOpenRequest failed: 0x8"},
      {"WinHttpSetOption", 1, L"Unable to set proxy user: 0x8 Message 8."},
      {"WinHttpSetOption", 2, L"Unable to set proxy pw: 0x8 Message 8."},
      {"WinHttpSendRequest", 1, L"WinHttpSendRequest failed: 0x8"},
  };
  for (const Row& row : rows) {
    World world;
    world.request->setProxyCredentials("user", L"password");
    world.windows.faults.failNth(row.call, row.nth, platform::kErrorNotEnoughMemory);
    EXPECT_FALSE(world.request->putStringAsync(ContentType::kZip, kUrl, "body", world.completions.function()));
    EXPECT_EQ(world.errors(), Errors({std::wstring(kStart) + row.message})) << row.call;
    EXPECT_EQ(world.completions.count(), 0);
    EXPECT_EQ(world.windows.openHandlesText(), world.before) << "closed at once";
    EXPECT_FALSE(world.log.text().find("password") != std::string::npos);
  }
}

TEST_F(StartTest, PreflightRefuses) {
  World world;
  world.request->preflight = false;
  EXPECT_FALSE(world.request->getAsync(kUrl, world.completions.function()));
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performAsync(): Pre-flight certificate verification failed for "
                                    L"https://host.example/c/b.zip?sv=1"}));
  EXPECT_EQ(world.windows.faults.callCount("WinHttpOpen"), 0U);
}

TEST_F(StartTest, FailingSecurityFlagsOnlyWarn) {
  World warned;
  warned.request->ignoreCertNameMismatch();
  warned.windows.faults.failNth("WinHttpSetOption", 1, 87);
  EXPECT_TRUE(warned.request->getAsync(kUrl, warned.completions.function()));
  EXPECT_TRUE(warned.log.has(CORE::kWarn, L"WinHttpRequest::performAsync(): WinHttpSetOptions failed: 0x57"));
}

TEST_F(StartTest, SecurityFlagsRevocationAndMask) {
  constexpr std::uint32_t kPlain = 0x097F0C00;
  constexpr std::uint32_t kWatching = 0x097F0C10;
  struct Row {
    const char* name;
    std::function<void(TestRequest&)> set;
    std::uint32_t mask, flags;
    bool revocation;
  };
  const Row rows[] = {
      {"nothing", [](TestRequest&) {}, kPlain, 0, false},
      {"name", [](TestRequest& r) { r.ignoreCertNameMismatch(); }, kPlain, 0x1000, false},
      {"all", [](TestRequest& r) { r.ignoreCertErrors(); }, kPlain, 0x3300, false},
      {"pin", [](TestRequest& r) { r.addThumbprint("AB:01"); }, kWatching, 0x100, false},
      {"pin and name",
       [](TestRequest& r) {
         r.setThumbprints({"AB:01"});
         r.ignoreCertNameMismatch();
       },
       kWatching, 0x1100, false},
      {"pin and all",
       [](TestRequest& r) {
         r.addThumbprint("AB:01");
         r.ignoreCertErrors();
       },
       kWatching, 0x3300, false},
      {"revocation", [](TestRequest& r) { r.enableRevocationCheck(); }, kPlain, 0, true},
      {"revocation and pin",
       [](TestRequest& r) {
         r.enableRevocationCheck();
         r.addThumbprint("AB:01");
       },
       kWatching, 0x100, false},
      {"revocation and proxy",
       [](TestRequest& r) {
         r.enableRevocationCheck();
         r.setProxy("proxy:8080");
       },
       kWatching, 0, false},
      {"probe", [](TestRequest& r) { r.makeProbe(); }, kWatching, 0, false},
  };
  for (const Row& row : rows) {
    World world;
    row.set(*world.request);
    EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function())) << row.name;
    const auto seen = world.exchange();
    EXPECT_EQ(seen.callbackMask, row.mask) << row.name;
    EXPECT_EQ(seen.securityFlags(), row.flags) << row.name;
    EXPECT_EQ(seen.numberOptions.count(79), row.revocation ? 1U : 0U) << row.name;
  }

  World world;
  world.request->enableRevocationCheck();
  world.windows.faults.failNth("WinHttpSetOption", 1, 50);
  EXPECT_FALSE(world.request->getAsync(kUrl, world.completions.function()));
  EXPECT_EQ(world.errors(),
            Errors({L"WinHttpRequest::performAsync(): WinHttpSetOption failed to enable revocation: 0x32"}));
}

TEST_F(StartTest, WhatWinHttpIsTold) {
  World world;
  TestRequest& request = *world.request;
  request.setHeaders({{"x-b", "2"}, {"X-A", "1"}});
  request.setQueryParameters({{"comp", "appendblock"}, {"blob", "a b"}});
  request.setProxy("proxy:8080");
  request.setProxyBypass("*.local");
  request.setProxyCredentials("us\xC3\xA9r", L"password");
  request.setTimeoutsMs(1, 2, 3, 4);
  request.onFinalize = [](TestRequest& r) {
    EXPECT_EQ(r.verb(), L"PUT");
    EXPECT_EQ(r.hostName(), L"host.example");
    EXPECT_EQ(r.urlPath(), L"/c/b.zip");
    EXPECT_EQ(r.bodyLength(), 4U);
    EXPECT_EQ(r.canonicalQuery(), QueryList({{"blob", "a b"}, {"comp", "appendblock"}, {"sv", "1"}}));
    r.headers()["x-late"] = "3";
  };
  const std::string buffer = "body and more";
  EXPECT_TRUE(request.putAsync(ContentType::kZip, "host.example:8443/c/b.zip?sv=1", std::as_bytes(std::span(buffer)), 4,
                               world.completions.function()));
  world.settle();
  const auto seen = world.exchange();
  EXPECT_EQ(seen.headersText, L"Content-Type:application/zip\r\nX-A:1\r\nx-b:2\r\nx-late:3");
  EXPECT_EQ(seen.path, L"/c/b.zip?sv=1&blob=a b&comp=appendblock&");
  EXPECT_EQ(seen.verb, L"PUT");
  EXPECT_EQ(seen.host, L"host.example");
  EXPECT_EQ(seen.port, 8443);
  EXPECT_TRUE(seen.secure);
  EXPECT_EQ(seen.requestFlags, 0x800100U);
  EXPECT_EQ(seen.userAgent, L"VXAgent");
  EXPECT_EQ(seen.accessType, 3U);
  EXPECT_EQ(seen.proxy, L"proxy:8080");
  EXPECT_EQ(seen.bypass, L"*.local");
  EXPECT_EQ(seen.sessionFlags, 0x10000000U);
  EXPECT_EQ(seen.timeouts, (std::array<int, 4>{1, 2, 3, 4}));
  EXPECT_EQ(seen.textOptions.at(0x1002), L"us\x00E9r");
  EXPECT_EQ(seen.textOptions.at(0x1003), L"password");
  EXPECT_EQ(seen.body, "body");
  EXPECT_EQ(request.getUrl(), L"host.example:8443/c/b.zip?sv=1");
  EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::performAsync(): Using proxy server: proxy:8080"));
}

TEST_F(StartTest, DefaultsAndPlainHttp) {
  World world;
  world.request->allowPlainHttp();
  world.request->setProxyBypass(L"*.local");
  world.request->setProxyCredentials(L"user", L"");
  EXPECT_TRUE(world.request->getAsync("http://host.example", world.completions.function()));
  const auto seen = world.exchange();
  EXPECT_FALSE(seen.secure);
  EXPECT_EQ(seen.port, 80);
  EXPECT_EQ(seen.requestFlags, 0x100U);
  EXPECT_EQ(seen.accessType, 4U);
  EXPECT_EQ(seen.bypass, L"") << "a bypass list belongs to a named proxy";
  EXPECT_TRUE(seen.textOptions.empty()) << "credentials need a password";
  EXPECT_EQ(seen.timeouts, (std::array<int, 4>{30000, 60000, 30000, 30000}));
  EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::performAsync(): Using automatic proxy configuration."));
}

TEST_F(StartTest, ContentTypes) {
  const char* const expected[] = {"",
                                  "text/css",
                                  "text/csv",
                                  "text/html",
                                  "application/json",
                                  "text/plain",
                                  "text/xml",
                                  "application/octet-stream",
                                  "application/zip",
                                  ""};
  for (std::uint32_t type = 0; type < std::size(expected); ++type) {
    World world;
    EXPECT_TRUE(world.request->postAsync(static_cast<ContentType>(type), kUrl, "", world.completions.function()));
    EXPECT_EQ(world.exchange().header("Content-Type"), expected[type]) << type;
  }
}

TEST_F(StartTest, BodiesThatCannotBeSent) {
  {
    World world;
    world.windows.files.writeSparse(L"C:\\big.zip", std::uint64_t{1} << 32);
    EXPECT_FALSE(world.request->putFileAsync(ContentType::kZip, kUrl, "C:\\big.zip", world.completions.function()));
    EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performAsync(): Request data size is too large"}));
    EXPECT_EQ(world.windows.openHandlesText(), world.before);
  }
  {
    World world;
    EXPECT_THROW(world.request->putFileAsync(ContentType::kZip, kUrl, "C:\\none.zip", world.completions.function()),
                 std::filesystem::filesystem_error);
    EXPECT_EQ(world.windows.openHandlesText(), world.before) << "nothing of the start is left";
    EXPECT_EQ(world.completions.count(), 0);
  }
  {
    World world;
    world.request->setHeaders({{"x-name", "a\r\nx-evil: 1"}});
    EXPECT_FALSE(world.request->getAsync(kUrl, world.completions.function()));
    EXPECT_EQ(world.errors(),
              Errors({L"WinHttpRequest::performAsync(): A request header holds a line break or a null character"}));
    EXPECT_FALSE(world.exchange().sent);
  }
  {
    World world;
    const std::string buffer = "short";
    EXPECT_TRUE(world.request->putAsync(ContentType::kNone, kUrl, std::as_bytes(std::span(buffer)), 6,
                                        world.completions.function()));
    world.settle();
    EXPECT_EQ(world.exchange().body, "short");
    EXPECT_TRUE(world.log.has(CORE::kWarn,
                              L"WinHttpRequest::putAsync(): Size of outgoing buffer is smaller than the given length"));
  }
}

}  // namespace
