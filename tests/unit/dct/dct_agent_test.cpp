#include "dct/dct_agent.h"

#include "tests/unit/dct/script_world.h"

namespace {

constexpr const wchar_t* kBundle = L"D:\\bundle.zip";

/// The agent with a time limit of a second.
struct ImpatientAgent : dct_Agent {
  std::uint32_t getScriptTimeout() override { return 1000; }
};

struct MonitorWorld : ScriptWorld {
  /// Starts a child on that script and has the agent watch it.
  bool monitor(dct_Agent& watcher, const std::function<void(sim::Child&)>& script) {
    windows.processes.onStart(script);
    auto started = windows.processes.CreateProcessW(L"powershell.exe", false, 0, L"C:\\", {});
    CORE::PropertyBag request;
    return watcher.monitorDCTProcess(request, std::move(started.value), kBundle, result);
  }

  platform::KernelHandle cancel = windows.objects.CreateEventW(true, false).value;
  CORE::PropertyBag result;
};

TEST(MonitorDCTProcess, TheCancelEventStopsTheScript) {
  for (const bool terminates : {true, false}) {
    MonitorWorld world;
    if (!terminates) {
      world.windows.faults.failAll("TerminateProcess", 5);
    }
    dct_Agent agent(world.cancel.get());
    EXPECT_FALSE(world.monitor(agent, [&](sim::Child& child) {
      world.windows.files.write(kBundle, "a part of it");
      world.windows.objects.SetEvent(world.cancel.get());
      child.hang();
    }));
    EXPECT_EQ(world.result.getErrorText().str(), L"The DCT script was cancelled");
    EXPECT_EQ(world.result.count(), 1U);
    EXPECT_EQ(world.messages(CORE::kWarn),
              std::vector<std::wstring>{L"dct_Agent::monitorDCTProcess(): Terminate process on DCT collection " +
                                        std::wstring(terminates ? L"succeeded" : L"failed")});
    EXPECT_EQ(world.windows.processes.children().at(0).exitCode, terminates ? 200U : 259U);
  }
}

TEST(MonitorDCTProcess, AnUnusedCancelEventAndAFiniteLimit) {
  MonitorWorld world;
  dct_Agent agent(world.cancel.get());
  EXPECT_TRUE(world.monitor(agent, [&](sim::Child&) { world.windows.files.write(kBundle, "PK"); }));

  // kept: a bundle that is there when the limit has passed counts, finished or not.
  ImpatientAgent impatient;
  EXPECT_TRUE(world.monitor(impatient, [](sim::Child& child) { child.hang(); }));
  world.windows.files.erase(kBundle);
  EXPECT_FALSE(world.monitor(impatient, [](sim::Child& child) { child.hang(); }));
}

}  // namespace
