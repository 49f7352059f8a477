#include "dct/dct_agent.h"

#include "tests/unit/dct/script_world.h"

namespace {

constexpr const wchar_t* kBundle = L"D:\\bundle.zip";

/// The agent with a time limit of a second.
class ImpatientAgent : public dct_Agent {
 public:
  using dct_Agent::dct_Agent;
  std::uint32_t getScriptTimeout() override { return 1000; }
};

/// Starts a child on that script and has the agent watch it.
bool monitor(dct_Agent& agent, sim::Windows& windows, std::function<void(sim::Child&)> script,
             CORE::PropertyBag& result) {
  windows.processes.onStart(std::move(script));
  auto started = windows.processes.CreateProcessW(L"powershell.exe", false, 0, L"C:\\", {});
  CORE::PropertyBag request;
  return agent.monitorDCTProcess(request, std::move(started.value), kBundle, result);
}

TEST(MonitorDCTProcess, TheBundleDecides) {
  const struct {
    const char* name;
    bool bundle;
    std::uint32_t exitCode;
    std::wstring error;
  } rows[] = {
      {"bundle and success", true, 0, L""},
      {"bundle and an exit code", true, 5, L""},
      {"no bundle, exit code 0", false, 0, L"The DCT script FAILED. Process exited with error Message 0.."},
      {"no bundle, exit code 5", false, 5, L"The DCT script FAILED. Process exited with error Message 5.."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptWorld world;
    CORE::PropertyBag result;
    const bool succeeded = monitor(
        world.agent, world.windows,
        [&](sim::Child& child) {
          if (row.bundle) {
            world.windows.files.write(kBundle, "PK");
          }
          child.exit(row.exitCode);
        },
        result);
    EXPECT_EQ(succeeded, row.bundle);
    EXPECT_EQ(result.get(L"FileName").str(), row.bundle ? kBundle : L"");
    EXPECT_EQ(result.getErrorText().str(), row.error);
    EXPECT_EQ(result.count(), 1U) << "no error code is stored with the text";
    const std::uint32_t id = world.windows.processes.children().at(0).id;
    EXPECT_EQ(world.messages(CORE::kTrace),
              std::vector<std::wstring>{L"dct_Agent::monitorDCTProcess(): PID of DCT cscript: " + std::to_wstring(id)});
  }
}

TEST(MonitorDCTProcess, WithoutAnExitCodeAllBitsStandForIt) {
  ScriptWorld world;
  world.windows.text.setMessage(0xFFFFFFFF, L"no such code");
  world.windows.faults.failNth("GetExitCodeProcess", 1, 5);
  CORE::PropertyBag result;
  EXPECT_FALSE(monitor(
      world.agent, world.windows, [](sim::Child&) {}, result));
  EXPECT_EQ(result.getErrorText().str(), L"The DCT script FAILED. Process exited with error no such code.");
}

TEST(MonitorDCTProcess, TheCancelEventStopsTheScript) {
  for (const bool terminates : {true, false}) {
    ScriptWorld world;
    auto event = world.windows.objects.CreateEventW(true, false);
    if (!terminates) {
      world.windows.faults.failAll("TerminateProcess", 5);
    }
    dct_Agent agent(event.value.get());
    CORE::PropertyBag result;
    EXPECT_FALSE(monitor(
        agent, world.windows,
        [&](sim::Child& child) {
          world.windows.files.write(kBundle, "a part of it");
          world.windows.objects.SetEvent(event.value.get());
          child.hang();
        },
        result));
    EXPECT_EQ(result.getErrorText().str(), L"The DCT script was cancelled");
    EXPECT_EQ(result.count(), 1U);
    EXPECT_EQ(world.messages(CORE::kWarn),
              std::vector<std::wstring>{
                  terminates ? L"dct_Agent::monitorDCTProcess(): Terminate process on DCT collection succeeded"
                             : L"dct_Agent::monitorDCTProcess(): Terminate process on DCT collection failed"});
    if (terminates) {
      EXPECT_EQ(world.windows.processes.children().at(0).exitCode, 200U);
    }
    event.value.reset();
  }
}

TEST(MonitorDCTProcess, AnUnusedCancelEventAndAFiniteLimit) {
  ScriptWorld world;
  auto event = world.windows.objects.CreateEventW(true, false);
  dct_Agent agent(event.value.get());
  CORE::PropertyBag result;
  EXPECT_TRUE(monitor(
      agent, world.windows, [&](sim::Child&) { world.windows.files.write(kBundle, "PK"); }, result));
  event.value.reset();

  // kept: a bundle that is there when the limit has passed counts, finished or not.
  ImpatientAgent impatient;
  EXPECT_TRUE(monitor(
      impatient, world.windows, [](sim::Child& child) { child.hang(); }, result));
  world.windows.files.erase(kBundle);
  EXPECT_FALSE(monitor(
      impatient, world.windows, [](sim::Child& child) { child.hang(); }, result));
}

}  // namespace
