#include <functional>

#include "tests/unit/main/run_world.h"

/// Whole runs in which each platform call in turn fails. Whatever fails, the run ends by itself with one of its exit
/// codes, leaves nothing open, breaks no rule of the platform, and takes the bundle away once it knew of it.

namespace {

struct Scenario {
  const char* name;
  std::function<void(RunWorld&)> prepare;
  int code;                ///< of the undisturbed run
  std::size_t requests;    ///< of the undisturbed run
  std::size_t sampleFrom;  ///< calls from here on: only every `sampleStep`-th fails
  std::size_t sampleStep;
};

/// The call whose failure explains a bundle that is left or a handle that is kept open.
struct Fault {
  std::size_t k;
  std::string call;
};

void check(RunWorld& world, int code, const Scenario& scenario, const Fault& fault) {
  const std::string where = std::string(scenario.name) + ", call " + std::to_string(fault.k) + " " + fault.call;
  EXPECT_GE(code, 0) << where;
  EXPECT_LE(code, 7) << where;
  const bool knewTheBundle = code == 0 || code >= 5;
  if (knewTheBundle && fault.call != "remove") {
    EXPECT_FALSE(world.bundleExists()) << where << "\n" << world.log.text();
  }
  if (fault.call != "WriteFile") {  // which loses a line of the log
    EXPECT_EQ(
        world.log.count(L"wWinMain(): DCT collection succeeded.") + world.log.count(L"wWinMain(): Upload failed."),
        code == 0 || code == 7 ? 1U : 0U)
        << where << "\n"
        << world.log.text();
  }
  // The only event that the program ever sets is the run's own.
  EXPECT_LE(world.windows.faults.callCount("SetEvent"), fault.call == "SetEvent" ? 2U : 1U)
      << where << ": completed more than once";
  EXPECT_LE(world.windows.winHttp.sentRequests().size(), scenario.requests) << where << ": a request was repeated";
  if (code == 0) {
    EXPECT_EQ(world.answered, scenario.requests) << where;
  }
  EXPECT_EQ(world.leftOpen(), "") << where;
}

void sweep(const Scenario& scenario, sim::Delivery delivery) {
  std::vector<std::string> calls;
  {
    RunWorld world;
    world.windows.winHttp.delivery = delivery;
    scenario.prepare(world);
    const std::size_t before = world.windows.faults.calls().size();
    ASSERT_EQ(world.run(), scenario.code) << world.log.text();
    ASSERT_EQ(world.windows.winHttp.sentRequests().size(), scenario.requests);
    calls = world.windows.faults.calls();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    check(world, scenario.code, scenario, {0, "none"});
  }
  for (std::size_t k = 1; k <= calls.size(); k += k < scenario.sampleFrom ? 1 : scenario.sampleStep) {
    RunWorld world;
    world.windows.winHttp.delivery = delivery;
    scenario.prepare(world);
    const std::size_t before = world.windows.faults.calls().size();
    world.windows.faults.failCall(before + k, 5);
    const int code = world.run();
    const auto now = world.windows.faults.calls();
    const Fault fault = {k, before + k <= now.size() ? now[before + k - 1] : "none"};
    check(world, code, scenario, fault);
    if (testing::Test::HasFailure()) {
      return;
    }
  }
}

void putBlob(RunWorld&) {}

void failingScript(RunWorld& world) {
  world.writesBundle = false;
  world.exitCode = 5;
}

/// An append run that the server ends at its second block, which is long enough to pass every call of such a run.
void appendBlocks(RunWorld& world) {
  world.bundleSize = (256u << 20) + 1;
  world.failingRequest = 3;
}

TEST(Sweep, PutBlob) { sweep({"Put Blob", putBlob, 0, 1, 10'000, 1}, sim::Delivery::kInline); }
TEST(Sweep, PutBlobOnAWorker) { sweep({"Put Blob", putBlob, 0, 1, 10'000, 1}, sim::Delivery::kWorker); }
TEST(Sweep, FailingScript) { sweep({"failing script", failingScript, 4, 0, 10'000, 1}, sim::Delivery::kInline); }
TEST(Sweep, AppendBlocks) { sweep({"append", appendBlocks, 7, 3, 10'000, 1}, sim::Delivery::kInline); }

}  // namespace
