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
  EXPECT_EQ(result.toString(L"", false), L"   FileName = \"" + kBundlePath + L"\"");

  const sim::ChildRecord script = world.windows.processes.children().at(1);
  EXPECT_EQ(script.commandLine,
            L"powershell.exe -nologo -ExecutionPolicy RemoteSigned -File \"C:\\Agent\\dct\\vdx-support.ps1\" -f \"" +
                kBundlePath + L"\" -d \"" + logs + L"\\Temp\" -s -c USB");
  EXPECT_TRUE(script.folder == L"C:\\Agent\\dct" && script.flags == 0 && !script.inheritHandles);
  EXPECT_EQ(world.windows.files.descriptorOf(logs), L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
  EXPECT_EQ(world.windows.files.descriptorOf(logs + L"\\Temp"), L"") << "made as ever: it inherits";
  EXPECT_EQ(world.log.messages(CORE::kDebug), (Texts{invoke + L"Temp folder - " + logs + L"\\Temp",
                                                     invoke + L"CreateAgentDCT: command line: " + script.commandLine}));
  EXPECT_EQ(world.log.messages(CORE::kInfo),
            Texts{invoke + L"Parameters received: \n    Features = \"USB\"\r\n   Version = \"2\"\r\n"});
  EXPECT_TRUE(world.log.has(CORE::kTrace, L"monitorDCTProcess(): PID of DCT cscript: " + std::to_wstring(script.id)));
}

TEST(MonitorDCTProcess, CancelEvent) {
  ScriptWorld world;
  const platform::KernelHandle cancel = world.windows.objects.CreateEventW(true, false).value;
  world.windows.processes.onStart([&](sim::Child& child) {
    world.windows.objects.SetEvent(cancel.get());
    child.hang();
  });
  CORE::PropertyBag request, result;
  auto started = world.windows.processes.CreateProcessW(L"powershell.exe", false, 0, L"C:\\", {});
  EXPECT_FALSE(dct_Agent(cancel.get()).monitorDCTProcess(request, std::move(started.value), L"D:\\b.zip", result));
  EXPECT_EQ(result.toString(L"", false), L"   ErrorText = \"The DCT script was cancelled\"");
  EXPECT_TRUE(world.log.has(CORE::kWarn, L"monitorDCTProcess(): Terminate process on DCT collection succeeded"));
  EXPECT_EQ(world.windows.processes.children().at(0).exitCode, 200U);
}

}  // namespace
