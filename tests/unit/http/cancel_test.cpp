#include <thread>

#include "http/exchange_handles.h"
#include "tests/unit/http/http_test.h"

// Giving up: cancelRequest, and the time limit of the synchronous operations.

namespace {

TEST(CancelTest, DuringTheExchangeNoCompletionComes) {
  for (int n = 0; n < 12; ++n) {
    const bool synchronous = n % 2 == 0;
    World world;
    world.reply.hold = true;
    world.windows.winHttp.closingInline = n % 4 < 2;
    world.windows.winHttp.onClose = kOnClose[n / 4];
    std::thread canceller([&] {
      world.windows.winHttp.waitUntilHeld();
      EXPECT_TRUE(world.request->cancelRequest());
    });
    EXPECT_EQ(synchronous ? world.request->get(kUrl, world.body) : world.get(), !synchronous);
    canceller.join();
    world.settle();
    EXPECT_EQ(world.completions, 0);
    EXPECT_EQ(world.log.count(L"Waiting for http request"), 0U) << "a synchronous call comes back at once";
    EXPECT_EQ(world.log.count(L"doesn't exist"), 0U) << "late steps end quietly";
  }
}

TEST(CancelTest, CancelThatSeesNoEndOrHasNoEvent) {
  World world(sim::Delivery::kNever);
  EXPECT_TRUE(world.request->cancelRequest()) << "nothing yet";
  EXPECT_TRUE(world.get());
  EXPECT_EQ(world.request->getResponseCode(), 0U);
  std::string headers = "old";
  world.request->getResponseHeaders(headers);
  EXPECT_EQ(headers, "");
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_FALSE(world.exchange().closed) << "the exchange goes on";
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_TRUE(world.exchange().closed);
  EXPECT_TRUE(
      world.log.text().ends_with("WARN  WinHttpRequest::getResponseCode(): Request did not complete\n"
                                 "WARN  WinHttpRequest::getResponseHeaders(): Request did not complete\n"
                                 "DEBUG WinHttpRequest::cancelRequest(): Failed to wait for cancel event\n"));
  // The table keeps the request until HANDLE_CLOSING, which never came of itself.
  WinHttpRequest::WinHttpCallback(nullptr, world.exchange().context, 0x800, nullptr, 0);
  EXPECT_EQ(world.completions, 0);
}

TEST(CancelTest, HandlesCloseAfterTheLastCall) {
  World world;
  const auto closes = [&] { return world.windows.faults.callCount("WinHttpCloseHandle"); };
  const auto open = [&] { return world.windows.winHttp.WinHttpOpen(L"agent", 4, L"", L"", 1u << 28); };
  ExchangeHandles handles;
  EXPECT_TRUE(handles.begin() && handles.setSession(open().value));
  {
    const auto outer = handles.useSession();
    {
      const auto inner = handles.useSession();
      EXPECT_TRUE(handles.close(ExchangeHandles::Outcome::kCancelled));
    }
    EXPECT_FALSE(handles.useSession()) << "no new call on a handle that is being closed";
    EXPECT_EQ(closes(), 0U) << "still usable by the other call";
  }
  EXPECT_EQ(closes(), 1U);
  EXPECT_FALSE(handles.setSession(open().value)) << "it came too late";
  EXPECT_EQ(closes(), 2U);
  handles.closeNow(ExchangeHandles::Outcome::kFinished);
  EXPECT_EQ(handles.settle(), ExchangeHandles::Outcome::kCancelled) << "the first decides";
  EXPECT_EQ(handles.settle(), std::nullopt) << "settled once";
}

TEST(CancelTest, RacesWithTheExchangeEndEitherWay) {
  for (std::uint32_t round = 0; round < 60; ++round) {
    World world(sim::Delivery::kMixed);
    world.windows.winHttp.seed = round;
    world.reply.repeatedBody = 100;
    world.reply.pieces.assign(20, 5);
    const bool duringTheStart = round % 4 == 0;
    world.request->onFinalize = [&](TestRequest&) {
      while (duringTheStart && !world.exchange().closed) {
        std::this_thread::yield();
      }
    };
    std::thread canceller([&, request = world.request] {
      for (std::uint32_t i = 0; i < round * 4 || (duringTheStart && world.windows.winHttp.requests().empty()); ++i) {
        std::this_thread::yield();
      }
      EXPECT_TRUE(request->cancelRequest());
    });
    const bool started = world.request->putStringAsync(kZip, kUrl, "body", world.completion());
    canceller.join();
    world.settle();
    EXPECT_LE(world.completions, started ? 1 : 0);
    EXPECT_FALSE(duringTheStart && (started || world.exchange().sent));
  }
}

TEST(CancelTest, SynchronousCallWithoutItsEventAndAtItsLimit) {
  World world;
  world.reply.hold = true;
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  EXPECT_FALSE(world.request->get("", world.body));
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  EXPECT_TRUE(world.exchange().closed) << "nothing lingers";
  EXPECT_EQ(world.errors(),
            Errors({L"WinHttpRequest::performSync(): Unable to create synchronizing event",
                    L"WinHttpRequest::performAsync(): Empty url",
                    L"WinHttpRequest::performSync(): Failed to perform synchronous request",
                    L"WinHttpRequest::performSync(): Waiting for http request (https://host.example/c/b.zip?sv=1) "
                    L"failed. Wait result=258. LastError=Message 0.."}));
  world.settle();
  world.request = TestRequest::create();
  world.log.clear();
  world.windows.faults.failNth("SetEvent", 1, 6);
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  EXPECT_EQ(world.errors()[0], L"WinHttpRequest::Synchronize(): Unable to signal sync event");
}

}  // namespace
