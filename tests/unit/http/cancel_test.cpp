#include <atomic>
#include <thread>

#include "tests/unit/http/http_test.h"

// Giving up: cancelRequest, and the time limit of the synchronous operations.

namespace {

class CancelTest : public HttpTest {
 protected:
  static void hold(World& world) {
    world.windows.winHttp.onRequest([](const sim::HttpExchange&) {
      sim::HttpReply reply;
      reply.hold = true;
      return reply;
    });
  }
};

TEST_F(CancelTest, BeforeTheStartAndAfterTheEndThereIsNothingToCancel) {
  World world;
  EXPECT_TRUE(world.request->cancelRequest());
  EXPECT_EQ(world.request->getResponseCode(), 0U);
  std::string headers = "old";
  world.request->getResponseHeaders(headers);
  EXPECT_EQ(headers, "");
  EXPECT_EQ(world.log.text(),
            "WARN  WinHttpRequest::getResponseCode(): Request did not complete\n"
            "WARN  WinHttpRequest::getResponseHeaders(): Request did not complete\n");
  EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function())) << "and the start is not hindered";
  world.settle();
  EXPECT_TRUE(world.request->cancelRequest());
  EXPECT_EQ(world.completions.count(), 1);
  EXPECT_EQ(world.windows.faults.callCount("CreateEventW"), 0U);
}

TEST_F(CancelTest, DuringTheExchangeNoCompletionComes) {
  for (const bool closingInline : {false, true}) {
    for (const auto onClose : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
      World world;
      hold(world);
      world.windows.winHttp.closingInline = closingInline;
      world.windows.winHttp.onClose = onClose;
      EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function()));
      world.windows.winHttp.waitUntilHeld();
      EXPECT_TRUE(world.request->cancelRequest());
      EXPECT_TRUE(world.request->cancelRequest()) << "nothing left";
      world.settle();
      EXPECT_EQ(world.completions.count(), 0);
      EXPECT_EQ(world.log.count(L"doesn't exist"), 0U) << "late steps end quietly";
    }
  }
}

TEST_F(CancelTest, CancelThatSeesNoEndOrHasNoEvent) {
  World world;
  world.windows.winHttp.delivery = sim::Delivery::kNever;
  EXPECT_TRUE(world.request->getAsync(kUrl, world.completions.function()));
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_FALSE(world.exchange().closed) << "the exchange goes on";
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_TRUE(world.exchange().closed);
  EXPECT_TRUE(world.log.has(CORE::kDebug, L"WinHttpRequest::cancelRequest(): Failed to wait for cancel event"));
  // The table keeps the request until HANDLE_CLOSING, which never came of itself.
  WinHttpRequest::WinHttpCallback(nullptr, world.exchange().context, 0x800, nullptr, 0);
  EXPECT_EQ(world.completions.count(), 0);
}

TEST_F(CancelTest, DuringTheStartNothingIsSent) {
  World world;
  std::thread canceller;
  world.request->onFinalize = [&](TestRequest& request) {
    canceller = std::thread([&] { EXPECT_TRUE(request.cancelRequest()); });
    while (!world.exchange().closed) {
      std::this_thread::yield();
    }
  };
  EXPECT_FALSE(world.request->getAsync(kUrl, world.completions.function()));
  canceller.join();
  EXPECT_EQ(world.completions.count(), 0);
  EXPECT_FALSE(world.exchange().sent);
}

TEST_F(CancelTest, RacesWithTheExchangeEndEitherWay) {
  for (std::uint32_t round = 0; round < 60; ++round) {
    World world;
    world.windows.winHttp.delivery = sim::Delivery::kMixed;
    world.windows.winHttp.seed = round;
    world.windows.winHttp.onRequest([](const sim::HttpExchange&) {
      sim::HttpReply reply;
      reply.repeatedBody = 100;
      reply.pieces.assign(20, 5);
      return reply;
    });
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
    const bool started = world.request->putStringAsync(ContentType::kZip, kUrl, "body", world.completions.function());
    canceller.join();
    world.settle();
    EXPECT_LE(world.completions.count(), started ? 1 : 0);
  }
}

TEST_F(CancelTest, CancelledSynchronousCallComesBack) {
  World world;
  hold(world);
  std::thread canceller([&] {
    world.windows.winHttp.waitUntilHeld();
    EXPECT_TRUE(world.request->cancelRequest());
  });
  std::string response = "old";
  EXPECT_FALSE(world.request->get(kUrl, response));
  canceller.join();
  EXPECT_EQ(response, "");
  EXPECT_EQ(world.log.count(L"Waiting for http request"), 0U);
}

TEST_F(CancelTest, SynchronousCallGivesUpAtItsLimit) {
  World world;
  hold(world);
  std::string response = "old";
  EXPECT_FALSE(world.request->get(kUrl, response));
  EXPECT_EQ(response, "");
  EXPECT_EQ(
      world.log.count(L"WinHttpRequest::performSync(): Waiting for http request (https://host.example/c/b.zip?sv=1)"
                      L" failed. Wait result=258. LastError="),
      1U)
      << world.log.text();
  EXPECT_TRUE(world.exchange().closed) << "nothing lingers";
}

TEST_F(CancelTest, SynchronousCallThatCannotStart) {
  World world;
  std::string response;
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->get(kUrl, response));
  EXPECT_FALSE(world.request->get("", response));
  EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performSync(): Unable to create synchronizing event",
                                    L"WinHttpRequest::performAsync(): Empty url",
                                    L"WinHttpRequest::performSync(): Failed to perform synchronous request"}));
}

TEST_F(CancelTest, EventThatCannotBeSignalledIsLogged) {
  World world;
  world.windows.faults.failNth("SetEvent", 1, 6);
  std::string response;
  EXPECT_FALSE(world.request->get(kUrl, response));
  EXPECT_TRUE(world.log.has(CORE::kError, L"WinHttpRequest::Synchronize(): Unable to signal sync event"));
}

}  // namespace
