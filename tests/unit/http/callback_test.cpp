#include "http/inflight_table.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Notifications by hand, on a request that is in flight and waits for its response.

namespace {

class CallbackTest : public HttpTest {
 protected:
  /// A request that nobody but the test notifies.
  static std::uintptr_t inFlight(World& world) {
    world.windows.winHttp.delivery = sim::Delivery::kNever;
    EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function()));
    world.log.clear();
    return world.exchange().context;
  }
  static void notify(std::uintptr_t context, std::uint32_t status, std::uint32_t number) {
    WinHttpRequest::WinHttpCallback(nullptr, context, status, &number, sizeof(number));
  }
  static void end(std::uintptr_t context) {
    notify(context, platform::kStatusDataAvailable, 0);
    notify(context, platform::kStatusHandleClosing, 0);
  }
  static void requestError(std::uintptr_t context, std::uintptr_t api, std::uint32_t error) {
    platform::AsyncResult result{api, error};
    WinHttpRequest::WinHttpCallback(nullptr, context, platform::kStatusRequestError, &result, sizeof(result));
  }
};

TEST_F(CallbackTest, NullAndUnknownContexts) {
  World world;
  notify(0, platform::kStatusHandleCreated, 0);
  notify(0, platform::kStatusHandleClosing, 0);
  notify(~std::uintptr_t{0}, platform::kStatusSendRequestComplete, 0);
  EXPECT_EQ(world.log.text(), "");
  notify(0, platform::kStatusReadComplete, 0);
  EXPECT_EQ(world.log.text(), "WARN  WinHttpRequest::WinHttpCallback(): Context is null. Internet status: 524288\n");
}

TEST_F(CallbackTest, SecureFailureNamesEachBit) {
  struct Row {
    std::uint32_t bits;
    std::vector<const wchar_t*> texts;
  };
  const Row rows[] = {
      {0x1, {L"Certificate revocation check failed"}},
      {0x2, {L"Certificate is invalid"}},
      {0x4, {L"Certificate has been revoked"}},
      {0x8, {L"Certificate Authority is unrecognized"}},
      {0x10, {L"Certificate Common Name is incorrect"}},
      {0x20, {L"Certificate is expired"}},
      {0x40, {L"Server's certificate has wrong usage"}},
      {0x80000000, {L"Internal ssl library error"}},
      {0x80000009,
       {L"Certificate revocation check failed", L"Certificate Authority is unrecognized",
        L"Internal ssl library error"}},
      {0x100, {}},
  };
  World world;
  const auto context = inFlight(world);
  for (const Row& row : rows) {
    world.log.clear();
    notify(context, platform::kStatusSecureFailure, row.bits);
    std::vector<sim::LogLine> expected;
    for (const wchar_t* text : row.texts) {
      expected.push_back({CORE::kDebug, std::wstring(L"WinHttpRequest::RequestCallback(): ") + text});
    }
    EXPECT_EQ(world.log.lines(), expected) << row.bits;
  }
  EXPECT_FALSE(world.exchange().closed) << "the error itself comes as REQUEST_ERROR";
  end(context);
}

TEST_F(CallbackTest, UnknownStatusesAndUnknownApis) {
  World world;
  const auto context = inFlight(world);
  notify(context, platform::kStatusRequestSent, 0);
  notify(context, platform::kStatusHandleCreated, 0);
  EXPECT_EQ(world.log.text(), "");
  notify(context, 0x1000000, 0);
  WinHttpRequest::WinHttpCallback(nullptr, context, platform::kStatusSecureFailure, nullptr, 0);
  EXPECT_EQ(world.log.text(), "DEBUG WinHttpRequest::RequestCallback(): Unable to handle callback type: 16777216\n");
  requestError(context, 17, 12002);
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::RequestCallback(): unknown code: 17 failed for url "
                                    L"https://host.example/c/b.zip?sv=1: 0x2ee2 (WinHTTP message 12002.)"}));
  EXPECT_TRUE(world.exchange().closed);
  EXPECT_EQ(world.completions.count(), 0) << "not before the handle is gone";
  notify(context, platform::kStatusHandleClosing, 0);
  EXPECT_EQ(world.completions.count(), 1);
}

TEST_F(CallbackTest, CancelledOperationIsLeftToWhoeverCancelled) {
  World world;
  const auto context = inFlight(world);
  requestError(context, 1, 12017);
  EXPECT_EQ(world.errors().size(), 1U);
  EXPECT_FALSE(world.exchange().closed);
  end(context);
  EXPECT_EQ(world.completions.count(), 1);
}

TEST_F(CallbackTest, StepsOfAnEndedExchangeAreQuiet) {
  World world;
  world.windows.winHttp.delivery = sim::Delivery::kNever;
  world.windows.files.write(L"C:\\b.zip", "bundle");
  EXPECT_TRUE(world.request->putFileAsync(ContentType::kZip, kUrl, "C:\\b.zip", world.completions.function()));
  const auto context = world.exchange().context;
  notify(context, platform::kStatusDataAvailable, 0);
  EXPECT_TRUE(world.exchange().closed);
  world.log.clear();
  const std::size_t reads = world.windows.faults.callCount("ReadFile");
  for (const std::uint32_t status :
       {platform::kStatusSendRequestComplete, platform::kStatusWriteComplete, platform::kStatusHeadersAvailable,
        platform::kStatusDataAvailable, platform::kStatusReadComplete}) {
    notify(context, status, 1);
  }
  EXPECT_EQ(world.log.text(), "");
  EXPECT_EQ(world.windows.faults.callCount("ReadFile"), reads);
  notify(context, platform::kStatusHandleClosing, 0);
  EXPECT_EQ(world.completions.count(), 1);
}

TEST_F(CallbackTest, TableGivesEachRequestANumberOfItsOwn) {
  World world;
  InflightTable& table = InflightTable::instance();
  const auto first = table.add(world.request);
  const auto second = table.add(world.request);
  EXPECT_NE(first, 0U);
  EXPECT_GT(second, first);
  EXPECT_EQ(table.find(first), world.request);
  EXPECT_EQ(table.take(first), world.request);
  EXPECT_EQ(table.take(first), nullptr);
  EXPECT_GT(table.add(world.request), second) << "a number is never used again";
  table.take(second);
  table.take(second + 1);
  EXPECT_EQ(world.request.use_count(), 1);
}

}  // namespace
