#include "core/base/exception.h"
#include "core/base/unicode.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Whole exchanges in every way WinHTTP may deliver its notifications, to their end or to a call that fails; then
// notifications by hand, of a WinHTTP that delivers none itself.

namespace {

/// The buffer has no other owner when WinHTTP reads it late.
bool putLent(World& world) {
  const auto buffer = std::make_shared<std::string>(1000, 'b');
  world.request->lendBody(buffer);
  return world.request->putAsync(kZip, kUrl, std::as_bytes(std::span(*buffer)), 1000, world.completion());
}

TEST(ExchangeTest, EveryMethodInEveryDelivery) {
  using W = World;
  struct Row {
    const char* name;
    const wchar_t* verb;
    std::string body;
    std::uint32_t status;
    int completions;  // none: it waits for the end itself
    bool (*run)(World&);
  };
  const Row rows[] = {
      {"get", L"GET", "", 200, 1, [](W& w) { return w.get(); }},
      {"post", L"POST", "in", 200, 1, [](W& w) { return w.request->postAsync(kZip, kUrl, "in", w.completion()); }},
      {"lent buffer", L"PUT", std::string(1000, 'b'), 200, 1, putLent},
      {"empty body", L"PUT", "", 200, 1,
       [](W& w) { return w.request->putStringAsync(kZip, kUrl, "", w.completion()); }},
      {"file", L"PUT", "bundle", 200, 1, [](W& w) { return w.putFile(); }},
      {"waits, 199", L"GET", "", 199, 0, [](W& w) { return w.request->get(kUrl, w.body); }},
      {"waits, 200", L"POST", "in", 200, 0, [](W& w) { return w.request->post(kZip, kUrl, "in", w.body); }},
      {"waits, 299", L"PUT", "in", 299, 0, [](W& w) { return w.request->put(kZip, kUrl, "in", w.body); }},
      {"waits, 300", L"PUT", "bundle", 300, 0, [](W& w) { return w.request->putFile(kZip, kUrl, kPath, w.body); }},
      {"waits, 403", L"DELETE", "", 403, 0, [](W& w) { return w.request->deleteRequest(kUrl, w.body); }},
  };
  for (const bool early : {true, false}) {
    for (const sim::Delivery delivery : kDeliveries) {
      for (const Row& row : rows) {
        if (row.completions == 0 && delivery == sim::Delivery::kLate) {
          continue;  // nobody could let it come
        }
        SCOPED_TRACE(row.name);
        World world(delivery);
        world.early = early;
        world.reply.status = row.status;
        EXPECT_EQ(row.run(world), row.status >= 200 && row.status <= 299) << row.status;
        world.waitUntilIdle();
        EXPECT_EQ(world.completions, row.completions);
        EXPECT_EQ(world.request->getResponseCode(), row.status);
        EXPECT_EQ(world.body, "an answer") << "handed out whatever the status";
        std::string headers;
        world.request->getResponseHeaders(headers);
        EXPECT_NE(headers.find("\r\nx-answer: caf\xC3\xA9\r\n"), std::string::npos);
        const auto seen = world.exchange();
        EXPECT_EQ(seen.verb, row.verb);
        EXPECT_EQ(seen.body, row.body);
        EXPECT_EQ(seen.totalLength, row.body.size());
        EXPECT_EQ(world.errors(), Errors());
        EXPECT_EQ(world.log.count(L"CheckHeaders(): HTTP status code received: " + std::to_wstring(row.status)), 1U);
      }
    }
  }
}

TEST(ExchangeTest, CompletionThatOwnsItsRequestGetsAReplyUpToItsBoundAndThrows) {
  for (const sim::Delivery delivery : kDeliveries) {
    World world(delivery);
    world.reply.repeatedBody = 100 * kMiB + 1;
    world.reply.pieces.assign(1000, 64 * 1024);  // a stack that grows with each would not be enough
    const std::weak_ptr<TestRequest> watched = world.request;
    EXPECT_TRUE(world.request->getAsync(kUrl, [owner = world.request](HttpRequest* self, const std::string& body) {
      EXPECT_EQ(body.size(), 100 * kMiB);
      EXPECT_TRUE(self->cancelRequest()) << "comes back at once: the handles are gone";
      throw CORE::coreException(L"out of the completion");
    }));
    world.request = nullptr;
    world.waitUntilIdle();
    EXPECT_EQ(world.errors(),
              Errors({L"WinHttpRequest::DataAvailable(): The answer is longer than 104857600 bytes",
                      L"WinHttpRequest::RequestCallback(): Exception in a callback: out of the completion"}));
    EXPECT_TRUE(watched.expired()) << "the function, and what it owns, is dropped after the call";
  }
}

// A connection that the server closes early ends the body normally for WinHTTP.
TEST(ExchangeTest, GetNeedsTheWholeBody) {
  const std::tuple<const wchar_t*, std::uint64_t, const char*, Errors> rows[] = {
      {L"Content-Length: 9\r\n", 0, "none", {}},
      {L"Content-Length: none\r\n", 0, "none", {}},
      {L"Transfer-Encoding: chunked\r\nContent-Length: 10\r\n", 0, "none", {}},
      {L"x: Content-Length\r\ncontent-LENGTH:10\r\n",
       0,
       "none",
       {L"WinHttpRequest::get(): The answer ended after 9 of 10 bytes"}},
      {L"", 101 * kMiB, "none", {L"WinHttpRequest::DataAvailable(): The answer is longer than 104857600 bytes"}},
      {L"",
       0,
       "WinHttpReadData",
       {L"WinHttpRequest::DataAvailable(): Failed to read data response, error 0x8 Message 8."}},
  };
  for (const auto& [headers, repeated, failing, errors] : rows) {
    SCOPED_TRACE(CORE::toUtf8Lossy(headers) + failing);
    World world;
    world.reply.headers = headers;
    world.reply.repeatedBody = repeated;
    world.windows.faults.failNth(failing, 2, platform::kErrorNotEnoughMemory);
    EXPECT_EQ(world.request->get(kUrl, world.body), errors.empty());
    EXPECT_EQ(world.errors(), errors);
    EXPECT_EQ(world.request->getResponseCode(), 200U);
    EXPECT_TRUE(world.request->isSuccess()) << "the status alone, for what needs no body";
  }
}

// The sweep over whole runs fails the other calls, and these in its own way.
TEST(ExchangeTest, CallsThatFailEndItOnce) {
  struct Row {
    const char* call;
    std::size_t nth;
    const wchar_t* text;
    bool goesOn = false;  ///< to the end of a whole response
  };
  const Row rows[] = {
      {"WinHttpSetOption", 1, L"performAsync(): WinHttpSetOption failed to enable revocation: 0x8"},
      {"WinHttpSetOption", 2, L"performAsync(): Unable to forbid redirects: 0x8 Message 8."},
      {"WinHttpSetOption", 3, L"performAsync(): Unable to set proxy user: 0x8 Message 8."},
      {"WinHttpSetOption", 4, L"performAsync(): Unable to set proxy pw: 0x8 Message 8."},
      {"WinHttpSendRequest", 1, L"performAsync(): WinHttpSendRequest failed: 0x8"},
      {"WinHttpWriteData", 1, L"UploadData(): WinHttpWritedata failed: 0x8 Message 8."},
      {"WinHttpQueryHeaders", 1, L"CheckHeaders(): Unable to get status code. Error: 0x8 Message 8.", true},
      {"WinHttpQueryHeaders", 3, L"CheckHeaders(): Unable to get all headers. Error: Message 8."},
      {"WinHttpReadData", 1, L"DataAvailable(): Failed to read data response, error 0x8 Message 8."},
  };
  for (const sim::OnClose onClose : kOnClose) {
    for (const sim::Delivery delivery : kDeliveries) {
      for (const Row& row : rows) {
        SCOPED_TRACE(CORE::toUtf8Lossy(row.text));
        World world(delivery);
        world.windows.winHttp.onClose = onClose;
        world.request->enableRevocationCheck();
        world.request->setProxyCredentials("user", L"password");
        world.windows.faults.failNth(row.call, row.nth, platform::kErrorNotEnoughMemory);
        const bool started = world.putFile();
        EXPECT_TRUE(started || world.windows.openHandlesText() == world.before) << "closed at once";
        world.waitUntilIdle();
        EXPECT_EQ(world.completions, started ? 1 : 0) << world.log.text();
        EXPECT_EQ(world.errors(), Errors({std::wstring(L"WinHttpRequest::") + row.text}));
        EXPECT_EQ(world.log.count(L"password") + world.log.count(L"Request did not complete"), 0U);
        EXPECT_EQ(world.body == "an answer", row.goesOn);
      }
    }
  }
}

TEST(ExchangeTest, NothingLeavesWhenTheLastCheckThrows) {
  for (const sim::Delivery delivery : kDeliveries) {
    World world(delivery);
    world.request->actAsProbe();
    world.request->onSending = []() -> bool { throw CORE::coreException(L"out of the check"); };
    const bool started = world.putFile();
    world.waitUntilIdle();
    EXPECT_EQ(world.completions, started ? 1 : 0);
    EXPECT_FALSE(world.exchange().reached);
    EXPECT_TRUE(world.log.has(CORE::kError, L"Exception in a callback: out of the check"));
  }
}

void notify(std::uintptr_t context, std::uint32_t status, std::uint32_t number = 0) {
  WinHttpRequest::WinHttpCallback(nullptr, context, status, &number, sizeof(number));
}

void requestError(std::uintptr_t context, std::uintptr_t api, std::uint32_t error) {
  platform::AsyncResult result{api, error};
  WinHttpRequest::WinHttpCallback(nullptr, context, platform::kStatusRequestError, &result, sizeof(result));
}

TEST(CallbackTest, EachIsLoggedAndTheEndComesOnce) {
  World world(sim::Delivery::kNever);
  EXPECT_TRUE(world.putFile());
  const auto context = world.exchange().context;
  world.log.clear();
  for (const std::uint32_t bit : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 31u}) {
    notify(context, platform::kStatusSecureFailure, 1u << bit);
  }
  notify(0, platform::kStatusHandleCreated);
  notify(0, platform::kStatusHandleClosing);
  notify(~std::uintptr_t{0}, platform::kStatusSendRequestComplete);
  notify(context, platform::kStatusRequestSent);
  notify(0, platform::kStatusReadComplete);
  notify(context, 0x1000000);
  for (std::uintptr_t api = 1; api <= 5; ++api) {
    requestError(context, api, 12017);
  }
  EXPECT_TRUE(world.exchange().closed) << "nobody on this side cancelled, and nothing else comes";
  requestError(context, 17, 12002);
  notify(context, platform::kStatusReadComplete, 1);
  EXPECT_EQ(world.completions, 0) << "not before the handle is gone";
  notify(context, platform::kStatusHandleClosing);
  EXPECT_EQ(world.completions, 1);

  EXPECT_TRUE(world.logged(
      L"Certificate revocation check failed|Certificate is invalid|Certificate has been revoked|"
      L"Certificate Authority is unrecognized|Certificate Common Name is incorrect|Certificate is expired|"
      L"Server's certificate has wrong usage|Internal ssl library error|Context is null. Internet status: 524288|"
      L"Unable to handle callback type: 16777216|"
      L"WinHttpReceiveResponse failed for url https://host.example/c/b.zip?sv=1: 0x2ef1 (WinHTTP message 12017.)|"
      L"WinHttpQueryDataAvailable failed|WinHttpReadData failed|WinHttpWriteData failed|WinHttpSendRequest failed|"
      L"unknown code: 17 failed for url https://host.example/c/b.zip?sv=1: 0x2ee2 (WinHTTP message 12002.)"))
      << world.log.text();
  EXPECT_EQ(world.log.lines().size(), 16U) << "the steps of an exchange that has ended are quiet";
}

}  // namespace
