#include "dct/dct_agent.h"

#include "core/files/ensure_folder.h"
#include "dct/agent_paths.h"
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

// The results alone do not say which folder or script it was, and why.
TEST(InvokeDCTScript, TheLogNamesWhatIsMissing) {
  ScriptWorld world;
  CORE::PropertyBag request, result;
  world.windows.faults.failNth("CreateDirectoryW", 6, 5);  // those above it are the first five
  EXPECT_FALSE(world.agent.invokeDCTScript(request, result));
  EXPECT_EQ(world.log.messages(CORE::kDebug).back(),
            L"dct_Agent::validate(): Unable to make the folder C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp: 0x5 "
            L"Message 5.");
  world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\AgentInstallPath", L"C:\\None");
  EXPECT_FALSE(world.agent.invokeDCTScript(request, result));
  EXPECT_EQ(world.log.messages(CORE::kDebug).back(),
            L"dct_common::invokeDCTScript(): There is no C:\\None\\dct\\vdx-support.ps1");
}

TEST(AgentPaths, FolderAndName) {
  const std::wstring key = L"HKLM\\Software\\Calvera\\Meridon\\";
  const std::wstring byDefault = L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp";
  ScriptWorld world;
  const std::tuple<const char*, const wchar_t*, const wchar_t*, std::wstring> rows[] = {
      {"chosen", L"true", L"D:\\x\\/\\", L"D:\\x\\Temp"},
      {"only a separator", L"true", L"\\", byDefault},
      {"switched off", L"false", L"D:\\x", byDefault}};
  for (const auto& [name, useRegistry, chosen, wanted] : rows) {
    world.windows.registry.set(key + L"Agent\\UseRegistryForLoggingPath", useRegistry);
    world.windows.registry.set(key + L"Log\\LogFileDirectory", chosen);
    EXPECT_EQ(world.agent.getTempFolder(), wanted) << name;
  }
  world.windows.text.setVariable(L"LOCALAPPDATA", L"C:\\L");
  world.windows.text.eraseVariable(L"ProgramData");
  EXPECT_EQ(world.agent.getTempFolder(), L"C:\\L\\vdx-sdct\\Temp");
  world.windows.clock.set(platform::SystemTime{2027, 1, 0, 2, 8, 4, 5, 6});
  world.windows.clock.biasMinutes = 300;
  EXPECT_EQ(newBundlePath(L"D:\\t"), L"D:\\t\\agentDCT_2027-01-02_03-04-05_006.zip") << "the local time";
}

TEST(EnsureFolder, ParentsByTextAlone) {
  for (const auto& [path, parent] :
       {std::pair(L"", L""), std::pair(L"C:", L"C:"), std::pair(L"C:\\", L"C:\\"), std::pair(L"C:a", L"C:"),
        std::pair(L"C:\\a", L"C:\\"), std::pair(L"C:/a\\\\b\\", L"C:/a"), std::pair(L"a", L""),
        std::pair(L"\\a", L"\\"), std::pair(L"\\\\s", L"\\\\s"), std::pair(L"\\\\s\\t\\", L"\\\\s\\t"),
        std::pair(L"\\\\s\\t\\x", L"\\\\s\\t")}) {
    EXPECT_EQ(CORE::parentPath(path), parent) << testing::PrintToString(path);
  }
}

}  // namespace
