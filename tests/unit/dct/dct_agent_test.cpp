#include "dct/dct_agent.h"

#include "tests/unit/dct/script_world.h"

namespace {

// The bare command lines: see the stand-in for powershell.exe, which takes no others.
TEST(InvokeDCTScript, StartsTheScriptExactlySo) {
  const std::wstring logs = L"C:\\ProgramData\\Calvera\\Meridon\\logs", invoke = L"dct_common::invokeDCTScript(): ";
  ScriptWorld world;
  world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\AgentInstallPath", L"C:\\Agent\\");
  world.windows.processes.onStart([&](sim::Child&) { world.windows.files.write(kBundlePath, "PK"); });
  CORE::PropertyBag request, result;
  request.set(L"Features", L"USB");
  request.set(L"Version", L"2");
  EXPECT_TRUE(world.agent.invokeDCTScript(request, result));
  EXPECT_EQ(result.get(L"FileName").str(), kBundlePath);
  EXPECT_EQ(result.count(), 1U);

  const sim::ChildRecord script = world.windows.processes.children().at(1);
  EXPECT_EQ(script.commandLine,
            L"powershell.exe -nologo -ExecutionPolicy RemoteSigned -File \"C:\\Agent\\dct\\vdx-support.ps1\" -f \"" +
                kBundlePath + L"\" -d \"" + logs + L"\\Temp\" -s -c USB");
  EXPECT_EQ(script.folder, L"C:\\Agent\\dct");
  EXPECT_EQ(script.flags, 0U);
  EXPECT_FALSE(script.inheritHandles);
  EXPECT_EQ(world.windows.files.descriptorOf(logs), L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
  EXPECT_EQ(world.windows.files.descriptorOf(logs + L"\\Temp"), L"") << "made as ever: it inherits";
  EXPECT_EQ(world.log.messages(CORE::kDebug), (Texts{invoke + L"Temp folder - " + logs + L"\\Temp",
                                                     invoke + L"CreateAgentDCT: command line: " + script.commandLine}));
  EXPECT_EQ(world.log.messages(CORE::kInfo),
            Texts{invoke + L"Parameters received: \n    Features = \"USB\"\r\n   Version = \"2\"\r\n"});
  const Texts traces = world.log.messages(CORE::kTrace);
  EXPECT_EQ(traces.front(), L"dct_Agent::validate(): Temp folder - " + logs + L"\\Temp");
  EXPECT_EQ(traces.back(), L"dct_Agent::monitorDCTProcess(): PID of DCT cscript: " + std::to_wstring(script.id));
}

/// The agent with a time limit of a second.
struct ImpatientAgent : dct_Agent {
  using dct_Agent::dct_Agent;
  std::uint32_t getScriptTimeout() override { return 1000; }
};

TEST(MonitorDCTProcess, CancelEventAndTimeLimit) {
  ScriptWorld world;
  const platform::KernelHandle cancel = world.windows.objects.CreateEventW(true, false).value;
  const auto monitor = [&](dct_Agent&& watcher, bool cancels, CORE::PropertyBag& result) {
    world.windows.processes.onStart([&world, &cancel, cancels](sim::Child& child) {
      if (cancels) {
        world.windows.objects.SetEvent(cancel.get());
      }
      child.hang();
    });
    auto started = world.windows.processes.CreateProcessW(L"powershell.exe", false, 0, L"C:\\", {});
    CORE::PropertyBag request;
    return watcher.monitorDCTProcess(request, std::move(started.value), L"D:\\bundle.zip", result);
  };
  CORE::PropertyBag late, result;
  EXPECT_FALSE(monitor(ImpatientAgent(cancel.get()), false, late));
  world.windows.files.write(L"D:\\bundle.zip", "a part of it");
  EXPECT_TRUE(monitor(ImpatientAgent(), false, late)) << "kept: finished or not";
  EXPECT_FALSE(monitor(dct_Agent(cancel.get()), true, result));
  world.windows.faults.failAll("TerminateProcess", 5);
  EXPECT_FALSE(monitor(dct_Agent(cancel.get()), false, result)) << "it is still set";
  EXPECT_EQ(result.getErrorText().str(), L"The DCT script was cancelled");
  EXPECT_EQ(result.count(), 1U);
  const std::wstring terminate = L"dct_Agent::monitorDCTProcess(): Terminate process on DCT collection ";
  EXPECT_EQ(world.log.messages(CORE::kWarn), (Texts{terminate + L"succeeded", terminate + L"failed"}));
  EXPECT_EQ(world.windows.processes.children().at(2).exitCode, 200U);
}

}  // namespace
