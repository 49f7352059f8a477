#include <thread>

#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Cancellation. The tests of uploads cancel an upload; those of trust, a probe at its time limit.

namespace {

TEST(CancelTest, CancelThatSeesNoEndOrHasNoEvent) {
  World world(sim::Delivery::kNever);
  EXPECT_TRUE(world.get());
  world.windows.faults.failNth("CreateEventW", 1, 8);
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_FALSE(world.exchange().closed) << "the exchange goes on";
  EXPECT_FALSE(world.request->cancelRequest());
  EXPECT_TRUE(world.exchange().closed);
  EXPECT_TRUE(world.logged(L"cancelRequest(): Failed to wait for cancel event"));
  // The table keeps the request until HANDLE_CLOSING, which never came of itself.
  WinHttpRequest::WinHttpCallback(nullptr, world.exchange().context, platform::kStatusHandleClosing, nullptr, 0);
  EXPECT_EQ(world.completions, 0);
}

TEST(CancelTest, ASynchronousCallComesBackAtOnceAndIsNotCheckedAnyMore) {
  World world;
  world.windows.winHttp.onClose = sim::OnClose::kDropped;
  world.request->checksCertificates = true;
  world.request->addThumbprint("AB:01");
  std::jthread canceller;
  world.request->onSending = [&] {
    canceller = std::jthread([&] { EXPECT_TRUE(world.request->cancelRequest()); });
    while (!world.exchange().closed) {
      std::this_thread::yield();
    }
    return true;
  };
  EXPECT_FALSE(world.request->get(kUrl, world.body));
  EXPECT_EQ(world.errors(), Errors()) << "neither the time limit nor a missing handle";
  EXPECT_FALSE(world.exchange().reached);
}

/// A cancellation that comes after that many pauses, during the start or at any time of the exchange.
void raceWithCancel(std::uint32_t seed, std::uint32_t pauses, bool duringTheStart) {
  World world(sim::Delivery::kMixed);
  world.windows.winHttp.seed = seed;
  world.reply.repeatedBody = 100;
  world.reply.pieces.assign(20, 5);
  world.request->onFinalize = [&](TestRequest&) {
    while (duringTheStart && !world.exchange().closed) {
      std::this_thread::yield();
    }
  };
  std::thread canceller([&, request = world.request] {
    for (std::uint32_t i = 0; i < pauses || (duringTheStart && world.windows.winHttp.requests().empty()); ++i) {
      std::this_thread::yield();
    }
    EXPECT_TRUE(request->cancelRequest());
  });
  const bool started = world.request->putStringAsync(kZip, kUrl, "body", world.completion());
  canceller.join();
  world.waitUntilIdle();
  EXPECT_LE(world.completions, started ? 1 : 0);
  EXPECT_FALSE(duringTheStart && (started || world.exchange().sent));
}

TEST(CancelTest, RacesWithTheExchangeEndEitherWay) {
  for (std::uint32_t round = 0; round < 45; ++round) {
    raceWithCancel(round, round * 5, false);
  }
  for (std::uint32_t round = 0; round < 15; ++round) {
    raceWithCancel(round, round * 15, true);
  }
}

}  // namespace
