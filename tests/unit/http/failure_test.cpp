#include <algorithm>

#include "core/exception.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Failures of the exchange: each ends it with one completion, or with none when the start failed.

namespace {

TEST(FailureTest, EachCallOfAWholeExchangeFailingInTurn) {
  struct Row {
    const char* call;
    std::ptrdiff_t nth;
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
  for (const sim::Delivery delivery : kDeliveries) {
    for (const sim::OnClose onClose : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
      std::size_t matched = 0;
      std::size_t calls = 1;
      for (std::size_t k = 1; k <= calls; ++k) {
        World world(delivery);
        world.windows.winHttp.onClose = onClose;
        world.request->enableRevocationCheck();
        world.request->setProxyCredentials("user", L"password");
        const std::size_t before = world.windows.faults.calls().size();
        world.windows.faults.failCall(before + k, platform::kErrorNotEnoughMemory);
        bool started = false;
        try {
          started = world.putFile();
        } catch (const std::exception&) {  // the file's size
        }
        EXPECT_TRUE(started || world.windows.openHandlesText() == world.before) << "closed at once";
        world.settle();
        EXPECT_EQ(world.completions, started ? 1 : 0) << k << ": " << world.log.text();
        EXPECT_EQ(world.log.count(L"password"), 0U);

        auto made = world.windows.faults.calls();
        made.erase(made.begin(), made.begin() + static_cast<std::ptrdiff_t>(before));
        calls = std::max(calls, made.size());
        made.resize(std::min(k, made.size()));
        for (const Row& row : rows) {
          if (made.size() == k && made.back() == row.call &&
              std::count(made.begin(), made.end(), row.call) == row.nth) {
            ++matched;
            EXPECT_EQ(world.errors(), Errors({std::wstring(L"WinHttpRequest::") + row.text}));
            EXPECT_EQ(world.log.count(L"Request did not complete"), 0U) << "completed, though not well";
          }
        }
        EXPECT_TRUE(world.log.count(L"Unable to get status code") == 0 || world.body == "an answer") << "goes on";
      }
      EXPECT_EQ(matched, std::size(rows));
    }
  }
}

TEST(FailureTest, RequestErrorsNameTheirCall) {
  const std::wstring names[] = {L"",         L"ReceiveResponse", L"QueryDataAvailable",
                                L"ReadData", L"WriteData",       L"SendRequest"};
  for (const sim::Delivery delivery : kDeliveries) {
    for (std::uint8_t stage = 1; stage < std::size(names); ++stage) {
      for (const bool probe : {false, true}) {
        World world(delivery);
        world.early = true;
        world.reply.failure = sim::HttpFailure{static_cast<sim::HttpStage>(stage), 12030};
        if (probe) {
          world.request->makeProbe();
        }
        EXPECT_TRUE(world.putFile());
        world.settle();
        EXPECT_EQ(world.completions, 1) << stage;
        EXPECT_TRUE(world.log.has(probe ? CORE::kTrace : CORE::kError,
                                  L"WinHttpRequest::RequestCallback(): WinHttp" + names[stage] +
                                      L" failed for url https://host.example/c/b.zip?sv=1: 0x2efe (WinHTTP message "
                                      L"12030.)"))
            << world.log.text();
      }
    }
  }
}

TEST(FailureTest, NothingLeavesWhenSendingIsRefused) {
  for (const sim::Delivery delivery : kDeliveries) {
    for (const bool fromFile : {false, true}) {
      for (const bool throws : {false, true}) {
        World world(delivery);
        world.request->makeProbe();
        int asked = 0;
        world.request->onSending = [&] {
          ++asked;
          return throws ? throw CORE::coreException(L"out of a step") : false;
        };
        const bool started =
            fromFile ? world.putFile() : world.request->putStringAsync(kZip, kUrl, "secret", world.completion());
        world.settle();
        EXPECT_EQ(asked, 1);
        EXPECT_EQ(world.completions, started ? 1 : 0);
        EXPECT_EQ(world.exchange().bodySize, 0U);
        EXPECT_TRUE(world.exchange().closed);
        EXPECT_EQ(
            world.log.has(CORE::kError, L"WinHttpRequest::RequestCallback(): Exception in a callback: out of a step"),
            throws);
      }
    }
  }
}

TEST(FailureTest, LateNotificationsOfAFailedSendFindNobody) {
  for (const sim::Delivery delivery : kDeliveries) {
    World world(delivery);
    world.windows.winHttp.bindContextOfFailedSend = true;
    world.windows.faults.failNth("WinHttpSendRequest", 1, 5);
    EXPECT_FALSE(world.putFile());
    const auto context = world.exchange().context;
    world.request = nullptr;
    for (const std::uint32_t status : {platform::kStatusRequestError, platform::kStatusHandleClosing}) {
      platform::AsyncResult result{5, 12017};
      WinHttpRequest::WinHttpCallback(nullptr, context, status, &result, sizeof(result));
    }
    world.settle();
    EXPECT_EQ(world.completions, 0);
    EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performAsync(): WinHttpSendRequest failed: 0x5"}));
    world.request = TestRequest::create();
    EXPECT_TRUE(world.get());
    EXPECT_GT(world.exchange().context, context) << "a number is never used again";
  }
}

}  // namespace
