#include "core/exception.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Failures of the exchange: each ends it with one completion, or with none when the start failed.

namespace {

TEST(FailureTest, CallsThatFail) {
  struct Row {
    const char* call;
    std::size_t nth;
    const wchar_t* text;  // after the class's name
  };
  const Row rows[] = {
      {"WinHttpOpen", 1, L"performAsync(): WinHttpOpen failed: Message 8."},
      {"WinHttpSetTimeouts", 1, L"performAsync(): WinHttpSetTimeouts failed: 0x8"},
      {"WinHttpSetStatusCallback", 1, L"performAsync(): Failed to set status callback"},
      {"WinHttpConnect", 1, L"performAsync(): WinHttpConnect failed: 0x8"},
      {"WinHttpOpenRequest", 1, L"performAsync(): WinHttpOpenRequest failed: 0x8"},
      {"WinHttpSetOption", 1, L"performAsync(): WinHttpSetOption failed to enable revocation: 0x8"},
      {"WinHttpSetOption", 2, L"performAsync(): Unable to set proxy user: 0x8 Message 8."},
      {"WinHttpSetOption", 3, L"performAsync(): Unable to set proxy pw: 0x8 Message 8."},
      {"WinHttpSendRequest", 1, L"performAsync(): WinHttpSendRequest failed: 0x8"},
      {"CreateFileW", 1, L"UploadData(): File stream is invalid"},
      {"ReadFile", 1, L"UploadData(): File stream is invalid"},
      {"WinHttpWriteData", 1, L"UploadData(): WinHttpWritedata failed: 0x8 Message 8."},
      {"WinHttpReceiveResponse", 1, L"ReceiveResponse(): WinHttpReceiveResponse failed: 0x8 Message 8."},
      {"WinHttpQueryHeaders", 1, L"CheckHeaders(): Unable to get status code. Error: 0x8 Message 8."},
      {"WinHttpQueryHeaders", 2, L"CheckHeaders(): Unable to get all headers. Error: Message 8."},
      {"WinHttpQueryHeaders", 3, L"CheckHeaders(): Unable to get all headers. Error: Message 8."},
      {"WinHttpQueryDataAvailable", 1, L"QueryData(): Unable to query data available, error 0x8 Message 8."},
      {"WinHttpQueryDataAvailable", 2, L"QueryData(): Unable to query data available, error 0x8 Message 8."},
      {"WinHttpReadData", 1, L"DataAvailable(): Failed to read data response, error 0x8 Message 8."},
  };
  for (int n = 0; n < 12; ++n) {
    for (const Row& row : rows) {
      World world(kDeliveries[n % 4]);
      world.windows.winHttp.onClose = kOnClose[n / 4];
      world.request->enableRevocationCheck();
      world.request->setProxyCredentials("user", L"password");
      world.windows.faults.failNth(row.call, row.nth, platform::kErrorNotEnoughMemory);
      const bool started = world.putFile();
      EXPECT_TRUE(started || world.windows.openHandlesText() == world.before) << "closed at once";
      world.settle();
      EXPECT_EQ(world.completions, started ? 1 : 0) << world.log.text();
      EXPECT_EQ(world.errors(), Errors({std::wstring(L"WinHttpRequest::") + row.text}));
      EXPECT_EQ(world.log.count(L"password") + world.log.count(L"Request did not complete"), 0U);
      EXPECT_EQ(world.body == "an answer", world.log.count(L"Unable to get status code") != 0) << "goes on";
    }
  }
}

TEST(FailureTest, NothingLeavesWhenSendingIsRefused) {
  for (int n = 0; n < 16; ++n) {
    const bool throws = n % 8 < 4;
    World world(kDeliveries[n % 4]);
    world.request->makeProbe();
    world.request->onSending = [&] { return throws ? throw CORE::coreException(L"out of a step") : false; };
    const bool started =
        n < 8 ? world.putFile() : world.request->putStringAsync(kZip, kUrl, "secret", world.completion());
    world.settle();
    EXPECT_EQ(world.completions, started ? 1 : 0);
    EXPECT_EQ(world.exchange().bodySize, 0U);
    EXPECT_TRUE(world.exchange().closed);
    EXPECT_EQ(world.log.count(L"WinHttpRequest::RequestCallback(): Exception in a callback: out of a step"),
              throws ? 1U : 0U);
  }
}

TEST(FailureTest, LateNotificationsOfAFailedSendFindNobody) {
  World world;
  world.windows.winHttp.bindContextOfFailedSend = true;
  world.windows.faults.failNth("WinHttpSendRequest", 1, 5);
  EXPECT_FALSE(world.putFile());
  const auto context = world.exchange().context;
  world.request = TestRequest::create();
  for (const std::uint32_t status : {platform::kStatusRequestError, platform::kStatusHandleClosing}) {
    platform::AsyncResult result{5, 12017};
    WinHttpRequest::WinHttpCallback(nullptr, context, status, &result, sizeof(result));
  }
  EXPECT_EQ(world.completions, 0);
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performAsync(): WinHttpSendRequest failed: 0x5"}));
  EXPECT_TRUE(world.get());
  EXPECT_GT(world.exchange().context, context) << "a number is never used again";
}

}  // namespace
