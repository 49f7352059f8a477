#include "http/event_queue.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Notifications by hand, on a request that nobody but the test notifies.

namespace {

void notify(std::uintptr_t context, std::uint32_t status, std::uint32_t number = 0) {
  WinHttpRequest::WinHttpCallback(nullptr, context, status, &number, sizeof(number));
}

void requestError(std::uintptr_t context, std::uintptr_t api, std::uint32_t error) {
  platform::AsyncResult result{api, error};
  WinHttpRequest::WinHttpCallback(nullptr, context, platform::kStatusRequestError, &result, sizeof(result));
}

TEST(CallbackTest, SecureFailureNamesEachBit) {
  World world(sim::Delivery::kNever);
  world.request->makeProbe();
  EXPECT_TRUE(world.putFile());
  const auto context = world.exchange().context;
  std::string told;
  for (std::uint32_t bit = 0; bit < 32; ++bit) {
    world.log.clear();
    notify(context, platform::kStatusSecureFailure, 1u << bit);
    told += world.log.text().empty() ? "" : std::to_string(bit) + " " + world.log.text();
  }
  EXPECT_EQ(told,
            "0 DEBUG WinHttpRequest::RequestCallback(): Certificate revocation check failed\n"
            "1 DEBUG WinHttpRequest::RequestCallback(): Certificate is invalid\n"
            "2 DEBUG WinHttpRequest::RequestCallback(): Certificate has been revoked\n"
            "3 DEBUG WinHttpRequest::RequestCallback(): Certificate Authority is unrecognized\n"
            "4 DEBUG WinHttpRequest::RequestCallback(): Certificate Common Name is incorrect\n"
            "5 DEBUG WinHttpRequest::RequestCallback(): Certificate is expired\n"
            "6 DEBUG WinHttpRequest::RequestCallback(): Server's certificate has wrong usage\n"
            "31 DEBUG WinHttpRequest::RequestCallback(): Internal ssl library error\n");
  world.log.clear();
  WinHttpRequest::WinHttpCallback(nullptr, context, platform::kStatusSecureFailure, nullptr, 0);
  notify(context, platform::kStatusSecureFailure, 0x30);
  EXPECT_EQ(world.log.lines().size(), 2U);
  EXPECT_FALSE(world.exchange().closed) << "the error itself comes as REQUEST_ERROR";
  requestError(context, 5, 12175);
  EXPECT_EQ(world.log.messages(CORE::kTrace).size(), 1U) << "a probe's abort is expected";
  notify(context, platform::kStatusHandleClosing);
}

TEST(CallbackTest, ClosingComesAfterWhatIsQueued) {
  EventQueue queue;
  EXPECT_TRUE(queue.push({1, 10, 0}));
  EXPECT_FALSE(queue.pushClosing()) << "somebody drains already";
  CallbackEvent event;
  EXPECT_TRUE(queue.pop(event) && event.status == 1);
  EXPECT_TRUE(queue.pop(event) && event.status == platform::kStatusHandleClosing);
}

TEST(CallbackTest, WhatIsUnknownAndWhatComesAfterTheEnd) {
  World world(sim::Delivery::kNever);
  EXPECT_TRUE(world.putFile());
  const auto context = world.exchange().context;
  world.log.clear();
  notify(0, platform::kStatusHandleCreated);
  notify(0, platform::kStatusHandleClosing);
  notify(~std::uintptr_t{0}, platform::kStatusSendRequestComplete);
  notify(context, platform::kStatusRequestSent);
  EXPECT_EQ(world.log.text(), "");
  notify(0, platform::kStatusReadComplete);
  notify(context, 0x1000000);
  for (std::uintptr_t api = 1; api <= 5; ++api) {
    requestError(context, api, 12017);
  }
  EXPECT_FALSE(world.exchange().closed) << "whoever cancelled closes";
  requestError(context, 17, 12002);
  EXPECT_TRUE(world.exchange().closed);
  std::string told =
      "WARN  WinHttpRequest::WinHttpCallback(): Context is null. Internet status: 524288\n"
      "DEBUG WinHttpRequest::RequestCallback(): Unable to handle callback type: 16777216\n";
  for (const std::string api : {"ReceiveResponse", "QueryDataAvailable", "ReadData", "WriteData", "SendRequest"}) {
    told += "ERROR WinHttpRequest::RequestCallback(): WinHttp" + api +
            " failed for url https://host.example/c/b.zip?sv=1: 0x2ef1 (WinHTTP message 12017.)\n";
  }
  told +=
      "ERROR WinHttpRequest::RequestCallback(): unknown code: 17 failed for url https://host.example/c/b.zip?sv=1: "
      "0x2ee2 (WinHTTP message 12002.)\n";
  EXPECT_EQ(world.log.text(), told);
  notify(context, platform::kStatusReadComplete, 1);
  EXPECT_EQ(world.log.text(), told) << "the steps of an exchange that has ended are quiet";
  EXPECT_EQ(world.completions, 0) << "not before the handle is gone";
  notify(context, platform::kStatusHandleClosing);
  EXPECT_EQ(world.completions, 1);
}

}  // namespace
