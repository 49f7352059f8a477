#include <thread>

#include "http/exchange_handles.h"
#include "http/notification_queue.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Giving up. How an upload is cancelled, and a probe at its time limit, is tested there.

namespace {

TEST(CancelTest, CancelThatSeesNoEndOrHasNoEvent) {
  World world(sim::Delivery::kNever);
  EXPECT_TRUE(world.get());
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_FALSE(world.exchange().closed) << "the exchange goes on";
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_TRUE(world.exchange().closed);
  EXPECT_TRUE(world.tells(L"cancelRequest(): Failed to wait for cancel event"));
  // The table keeps the request until HANDLE_CLOSING, which never came of itself.
  WinHttpRequest::WinHttpCallback(nullptr, world.exchange().context, platform::kStatusHandleClosing, nullptr, 0);
  EXPECT_EQ(world.completions, 0);
}

TEST(CancelTest, HandlesCloseAfterTheLastCallAndClosingComesLast) {
  World world;
  const auto closes = [&] { return world.windows.faults.callCount("WinHttpCloseHandle"); };
  const auto open = [&] { return world.windows.winHttp.WinHttpOpen(L"agent", 4, L"", L"", 1u << 28); };
  ExchangeHandles handles;
  EXPECT_TRUE(handles.markStarted() && handles.setSession(open().value));
  {
    const auto call = handles.useSession();
    EXPECT_TRUE(handles.close(ExchangeHandles::Outcome::kCancelled));
    EXPECT_FALSE(handles.useSession()) << "no new call on a handle that is being closed";
    EXPECT_EQ(closes(), 0U) << "still usable by the other call";
  }
  EXPECT_EQ(closes(), 1U);
  EXPECT_FALSE(handles.setSession(open().value)) << "it came too late";
  EXPECT_EQ(closes(), 2U);
  handles.closeNow(ExchangeHandles::Outcome::kFinished);
  EXPECT_EQ(handles.takeOutcome(), ExchangeHandles::Outcome::kCancelled) << "the first decides";
  EXPECT_EQ(handles.takeOutcome(), std::nullopt) << "settled once";

  NotificationQueue queue;
  Notification event;
  EXPECT_TRUE(queue.push({1, 10, 0}) && !queue.pushClosing()) << "somebody drains already";
  EXPECT_TRUE(queue.pop(event) && event.status == 1) << "before the closing";
  EXPECT_TRUE(queue.pop(event) && event.status == platform::kStatusHandleClosing);
}

TEST(CancelTest, ASynchronousCallComesBackAtOnce) {
  World world;
  std::jthread canceller;
  world.windows.winHttp.onHeaders([&](const sim::HttpExchange&) -> std::optional<sim::HttpReply> {
    canceller = std::jthread([&] { EXPECT_TRUE(world.request->cancelRequest()); });
    while (!world.exchange().closed) {
      std::this_thread::yield();
    }
    return std::nullopt;
  });
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  EXPECT_EQ(world.log.count(L"Waiting for http request"), 0U) << "not at its limit";
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

}  // namespace
