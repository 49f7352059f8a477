#include <atomic>
#include <thread>

#include "http/exchange_handles.h"
#include "tests/unit/http/http_test.h"

// Giving up: cancelRequest, and the time limit of the synchronous operations.

namespace {

TEST(CancelTest, BeforeTheStartAndAfterTheEndThereIsNothingToCancel) {
  World world;
  EXPECT_TRUE(world.request->cancelRequest());
  EXPECT_EQ(world.request->getResponseCode(), 0U);
  std::string headers = "old";
  world.request->getResponseHeaders(headers);
  EXPECT_EQ(headers, "");
  EXPECT_EQ(world.log.text(),
            "WARN  WinHttpRequest::getResponseCode(): Request did not complete\n"
            "WARN  WinHttpRequest::getResponseHeaders(): Request did not complete\n");
  EXPECT_TRUE(world.get()) << "and the start is not hindered";
  world.settle();
  EXPECT_TRUE(world.request->cancelRequest());
  EXPECT_EQ(world.completions, 1);
  EXPECT_EQ(world.windows.faults.callCount("CreateEventW"), 0U);
}

TEST(CancelTest, DuringTheExchangeNoCompletionComes) {
  for (const bool synchronous : {false, true}) {
    for (const bool closingInline : {false, true}) {
      for (const auto onClose : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
        World world;
        world.reply.hold = true;
        world.windows.winHttp.closingInline = closingInline;
        world.windows.winHttp.onClose = onClose;
        std::thread canceller([&] {
          world.windows.winHttp.waitUntilHeld();
          EXPECT_TRUE(world.request->cancelRequest());
          EXPECT_TRUE(world.request->cancelRequest()) << "nothing left";
        });
        EXPECT_EQ(synchronous ? world.request->get(kUrl, world.body) : world.get(), !synchronous);
        canceller.join();
        world.settle();
        EXPECT_EQ(world.completions, 0);
        EXPECT_EQ(world.body, "");
        EXPECT_EQ(world.log.count(L"Waiting for http request"), 0U) << "a synchronous call comes back at once";
        EXPECT_EQ(world.log.count(L"doesn't exist"), 0U) << "late steps end quietly";
      }
    }
  }
}

TEST(CancelTest, CancelThatSeesNoEndOrHasNoEvent) {
  World world(sim::Delivery::kNever);
  EXPECT_TRUE(world.get());
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_FALSE(world.exchange().closed) << "the exchange goes on";
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_TRUE(world.exchange().closed);
  EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::cancelRequest(): Failed to wait for cancel event"));
  // The table keeps the request until HANDLE_CLOSING, which never came of itself.
  WinHttpRequest::WinHttpCallback(nullptr, world.exchange().context, 0x800, nullptr, 0);
  EXPECT_EQ(world.completions, 0);
}

TEST(CancelTest, DuringTheStartNothingIsSent) {
  World world;
  std::thread canceller;
  world.request->onFinalize = [&](TestRequest& request) {
    canceller = std::thread([&] { EXPECT_TRUE(request.cancelRequest()); });
    while (!world.exchange().closed) {
      std::this_thread::yield();
    }
  };
  EXPECT_FALSE(world.get());
  canceller.join();
  EXPECT_EQ(world.completions, 0);
  EXPECT_FALSE(world.exchange().sent);
}

TEST(CancelTest, HandlesCloseAfterTheLastCallOrAtOnce) {
  using Outcome = ExchangeHandles::Outcome;
  for (const bool atOnce : {false, true}) {
    World world;
    const auto closes = [&] { return world.windows.faults.callCount("WinHttpCloseHandle"); };
    const auto open = [&] {
      return std::move(world.windows.winHttp.WinHttpOpen(L"agent", 4, L"", L"", 1u << 28).value);
    };
    ExchangeHandles handles;
    EXPECT_TRUE(handles.begin());
    EXPECT_TRUE(handles.setSession(open()));
    {
      const auto outer = handles.useSession();
      const auto inner = std::make_unique<ExchangeHandles::Call>(handles.useSession());
      EXPECT_TRUE(handles.close(Outcome::kCancelled));
      EXPECT_FALSE(handles.useSession()) << "no new call on a handle that is being closed";
      EXPECT_EQ(closes(), 0U) << "still usable by the calls";
      if (atOnce) {
        handles.closeNow(Outcome::kFinished);
        EXPECT_EQ(closes(), 1U);
      }
    }
    EXPECT_EQ(closes(), 1U);
    EXPECT_FALSE(handles.setSession(open()));
    EXPECT_EQ(closes(), 2U) << "it came too late";
    EXPECT_EQ(handles.settle(), Outcome::kCancelled) << "the first decides";
    EXPECT_EQ(handles.settle(), std::nullopt) << "settled once";
  }
}

TEST(CancelTest, RacesWithTheExchangeEndEitherWay) {
  for (std::uint32_t round = 0; round < 60; ++round) {
    World world(sim::Delivery::kMixed);
    world.windows.winHttp.seed = round;
    world.reply.repeatedBody = 100;
    world.reply.pieces.assign(20, 5);
    std::atomic<bool> go{false};
    std::thread canceller([&, request = world.request] {
      while (!go) {
        std::this_thread::yield();
      }
      for (std::uint32_t i = 0; i < round * 4; ++i) {
        std::this_thread::yield();
      }
      EXPECT_TRUE(request->cancelRequest());
    });
    go = true;
    const bool started = world.request->putStringAsync(kZip, kUrl, "body", world.completion());
    canceller.join();
    world.settle();
    EXPECT_LE(world.completions, started ? 1 : 0);
  }
}

TEST(CancelTest, SynchronousCallGivesUpAtItsLimit) {
  World world;
  world.reply.hold = true;
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  EXPECT_EQ(
      world.log.count(L"WinHttpRequest::performSync(): Waiting for http request (https://host.example/c/b.zip?sv=1)"
                      L" failed. Wait result=258. LastError="),
      1U)
      << world.log.text();
  EXPECT_TRUE(world.exchange().closed) << "nothing lingers";
}

TEST(CancelTest, SynchronousCallWithoutItsEvent) {
  World world;
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  EXPECT_FALSE(world.request->get("", world.body));
  world.windows.faults.failNth("SetEvent", 1, 6);
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  Errors errors = world.errors();
  errors.resize(4);  // the last is that of the wait
  EXPECT_EQ(errors, Errors({L"WinHttpRequest::performSync(): Unable to create synchronizing event",
                            L"WinHttpRequest::performAsync(): Empty url",
                            L"WinHttpRequest::performSync(): Failed to perform synchronous request",
                            L"WinHttpRequest::Synchronize(): Unable to signal sync event"}));
}

}  // namespace
