#include "http/event_queue.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Notifications by hand, on a request that nobody but the test notifies.

namespace {

void notify(std::uintptr_t context, std::uint32_t status, std::uint32_t number) {
  WinHttpRequest::WinHttpCallback(nullptr, context, status, &number, sizeof(number));
}

void requestError(std::uintptr_t context, std::uintptr_t api, std::uint32_t error) {
  platform::AsyncResult result{api, error};
  WinHttpRequest::WinHttpCallback(nullptr, context, platform::kStatusRequestError, &result, sizeof(result));
}

/// Starts the upload; its context.
std::uintptr_t inFlight(World& world) {
  EXPECT_TRUE(world.putFile());
  world.log.clear();
  return world.exchange().context;
}

TEST(CallbackTest, NullAndUnknownContexts) {
  World world;
  notify(0, platform::kStatusHandleCreated, 0);
  notify(0, platform::kStatusHandleClosing, 0);
  notify(~std::uintptr_t{0}, platform::kStatusSendRequestComplete, 0);
  EXPECT_EQ(world.log.text(), "");
  notify(0, platform::kStatusReadComplete, 0);
  EXPECT_EQ(world.log.text(), "WARN  WinHttpRequest::WinHttpCallback(): Context is null. Internet status: 524288\n");
}

TEST(CallbackTest, SecureFailureNamesEachBit) {
  const std::pair<std::uint32_t, const char*> texts[] = {
      {0x1, "Certificate revocation check failed"},   {0x2, "Certificate is invalid"},
      {0x4, "Certificate has been revoked"},          {0x8, "Certificate Authority is unrecognized"},
      {0x10, "Certificate Common Name is incorrect"}, {0x20, "Certificate is expired"},
      {0x80000000, "Internal ssl library error"},     {0x40, "Server's certificate has wrong usage"},
  };
  World world(sim::Delivery::kNever);
  const auto context = inFlight(world);
  std::string expected;
  for (const auto& [bit, text] : texts) {
    notify(context, platform::kStatusSecureFailure, bit);
    expected += std::string("DEBUG WinHttpRequest::RequestCallback(): ") + text + "\n";
  }
  EXPECT_EQ(world.log.text(), expected);
  world.log.clear();
  notify(context, platform::kStatusSecureFailure, 0x100);
  WinHttpRequest::WinHttpCallback(nullptr, context, platform::kStatusSecureFailure, nullptr, 0);
  EXPECT_EQ(world.log.text(), "");
  notify(context, platform::kStatusSecureFailure, 0xFFFFFFFF);
  EXPECT_EQ(world.log.text(), expected);
  EXPECT_FALSE(world.exchange().closed) << "the error itself comes as REQUEST_ERROR";
  requestError(context, 5, 12175);
  notify(context, platform::kStatusHandleClosing, 0);
}

TEST(CallbackTest, ClosingComesAfterWhatIsQueued) {
  EventQueue queue;
  EXPECT_TRUE(queue.push({1, 10, 0}));
  EXPECT_FALSE(queue.pushClosing()) << "somebody drains already";
  CallbackEvent event;
  EXPECT_TRUE(queue.pop(event) && event.status == 1);
  EXPECT_TRUE(queue.pop(event) && event.status == platform::kStatusHandleClosing);
}

TEST(CallbackTest, UnknownStatusesAndUnknownApis) {
  World world(sim::Delivery::kNever);
  const auto context = inFlight(world);
  notify(context, platform::kStatusRequestSent, 0);
  notify(context, platform::kStatusHandleCreated, 0);
  EXPECT_EQ(world.log.text(), "");
  notify(context, 0x1000000, 0);
  EXPECT_EQ(world.log.text(), "DEBUG WinHttpRequest::RequestCallback(): Unable to handle callback type: 16777216\n");
  requestError(context, 1, 12017);
  EXPECT_EQ(world.errors().size(), 1U);
  EXPECT_FALSE(world.exchange().closed) << "whoever cancelled closes";
  world.log.clear();
  requestError(context, 17, 12002);
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::RequestCallback(): unknown code: 17 failed for url "
                                    L"https://host.example/c/b.zip?sv=1: 0x2ee2 (WinHTTP message 12002.)"}));
  EXPECT_TRUE(world.exchange().closed);

  world.log.clear();  // the steps of an exchange that has ended are quiet
  const std::size_t reads = world.windows.faults.callCount("ReadFile");
  for (const std::uint32_t status :
       {platform::kStatusSendRequestComplete, platform::kStatusWriteComplete, platform::kStatusHeadersAvailable,
        platform::kStatusDataAvailable, platform::kStatusReadComplete}) {
    notify(context, status, 1);
  }
  EXPECT_EQ(world.log.text(), "");
  EXPECT_EQ(world.windows.faults.callCount("ReadFile"), reads);
  EXPECT_EQ(world.completions, 0) << "not before the handle is gone";
  notify(context, platform::kStatusHandleClosing, 0);
  EXPECT_EQ(world.completions, 1);
}

}  // namespace
