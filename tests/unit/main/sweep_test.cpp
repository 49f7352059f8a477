#include <map>

#include "tests/unit/main/run_world.h"

/// Whole runs in which each platform call in turn fails. Whatever fails, the run ends by itself with one of its exit
/// codes, leaves nothing open, breaks no rule of the platform, and takes the bundle away once it knew of it.

namespace {

struct Scenario {
  void (*prepare)(RunWorld&);
  int code;              ///< of the undisturbed run
  std::size_t requests;  ///< of the undisturbed run
};

/// Runs with the k-th call failing (0: none) and gives the number of calls. Whatever may stay because of a fault goes
/// by the name of the call that failed.
/// \return which calls it made that can fail, by their numbers; of those that only the log makes, the first few
std::vector<std::size_t> runOnce(const Scenario& scenario, std::size_t k) {
  RunWorld world;
  scenario.prepare(world);
  auto& faults = world.windows.faults;
  const std::size_t before = faults.calls().size();
  if (k > 0) {
    faults.failCall(before + k, 5);
  }
  const int code = world.run();
  const auto calls = faults.calls();
  const std::string failed = k > 0 && before + k <= calls.size() ? calls[before + k - 1] : "none";
  SCOPED_TRACE(failed);

  EXPECT_TRUE(code >= 0 && code <= 7 && (k > 0 || code == scenario.code)) << code;
  const bool knewTheBundle = code == 0 || code >= 5;
  if (knewTheBundle && failed != "remove") {
    EXPECT_FALSE(world.bundleExists()) << world.log.text();
  }
  if (failed != "WriteFile") {  // which loses a line of the log
    const std::size_t verdicts =
        world.log.count(L"wWinMain(): DCT collection succeeded.") + world.log.count(L"wWinMain(): Upload failed.");
    EXPECT_EQ(verdicts, code == 0 || code == 7 ? 1U : 0U) << world.log.text();
  }
  // The only event that the program ever sets is the run's own.
  EXPECT_LE(faults.callCount("SetEvent"), failed == "SetEvent" ? 2U : 1U) << "completed more than once";
  EXPECT_LE(world.windows.winHttp.sentRequests().size(), scenario.requests) << "a request was repeated";
  if (k == 0 || code == 0) {
    EXPECT_EQ(world.answered, scenario.requests);
  }
  std::map<std::string, int> ofTheLog = {{"LockFileEx", 0},
                                         {"UnlockFileEx", 0},
                                         {"WriteFile", 0},
                                         {"FileTimeToLocalFileTime", 0},
                                         {"FileTimeToSystemTime", 0}};
  std::vector<std::size_t> failable;
  for (std::size_t n = before + 1; n <= calls.size(); ++n) {
    const auto log = ofTheLog.find(calls[n - 1]);
    if (faults.canFail(n) && (log == ofTheLog.end() || ++log->second <= 8)) {
      failable.push_back(n - before);
    }
  }
  return failable;
}

void sweep(const Scenario& scenario) {
  for (const std::size_t k : runOnce(scenario, 0)) {
    SCOPED_TRACE("call " + std::to_string(k));
    runOnce(scenario, k);
    if (testing::Test::HasFailure()) {
      return;
    }
  }
}

void asItIs(RunWorld&) {}

void onAWorker(RunWorld& world) { world.windows.winHttp.delivery = sim::Delivery::kWorker; }

void failingScript(RunWorld& world) {
  world.writesBundle = false;
  world.exitCode = 5;
}

/// An append run that the server ends at its second block, which is long enough to pass every call of such a run.
void appendBlocks(RunWorld& world) {
  world.bundleSize = (256u << 20) + 1;
  world.failingRequest = 3;
}

TEST(Sweep, PutBlob) { sweep({asItIs, 0, 1}); }
TEST(Sweep, PutBlobOnAWorker) { sweep({onAWorker, 0, 1}); }
TEST(Sweep, FailingScript) { sweep({failingScript, 4, 0}); }
TEST(Sweep, AppendBlocks) { sweep({appendBlocks, 7, 3}); }

}  // namespace
