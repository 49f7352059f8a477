#include "dct/dct_common.h"

#include "tests/unit/dct/script_world.h"

namespace {

TEST(InvokeDCTScript, StartsTheScriptExactlySo) {
  const std::wstring temp = kTempFolder;
  for (const wchar_t* install : {L"C:\\The Agent", L"C:\\The Agent\\"}) {
    ScriptWorld world;
    world.windows.registry.set(kInstallPathSetting, install);
    world.windows.files.write(L"C:\\The Agent\\dct\\vdx-support.ps1", "#");
    world.windows.processes.onStart([&](sim::Child& child) {
      if (!child.argumentAfter(L"-d").empty()) {
        world.windows.files.write(kBundlePath, "PK");
      }
    });
    CORE::PropertyBag request, result;
    request.set(L"Features", L"USB");
    request.set(L"Version", L"2");
    EXPECT_TRUE(world.agent.invokeDCTScript(request, result));
    EXPECT_EQ(result.get(L"FileName").str(), kBundlePath);
    EXPECT_EQ(result.count(), 1U);

    ASSERT_EQ(world.windows.processes.children().size(), 2U);
    EXPECT_EQ(world.windows.processes.children()[0].commandLine,
              L"powershell.exe -NoLogo -ExecutionPolicy RemoteSigned -File vdx-query.ps1 -l -o json");
    const sim::ChildRecord script = world.windows.processes.children()[1];
    const std::wstring command =
        L"powershell.exe -nologo -ExecutionPolicy RemoteSigned -File \"C:\\The Agent\\dct\\vdx-support.ps1\" -f \"" +
        kBundlePath + L"\" -d \"" + temp + L"\" -s -c USB";
    EXPECT_EQ(script.commandLine, command);
    EXPECT_EQ(script.folder, L"C:\\The Agent\\dct");
    EXPECT_EQ(script.flags, 0U);
    EXPECT_FALSE(script.inheritHandles);
    EXPECT_EQ(script.inheritedCount, 0U);
    EXPECT_EQ(world.windows.files.descriptorOf(L"C:\\ProgramData\\Calvera\\Meridon\\logs"),
              L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
    EXPECT_EQ(world.windows.files.descriptorOf(temp), L"") << "made as ever: it inherits";
    EXPECT_EQ(world.messages(CORE::kDebug),
              (std::vector<std::wstring>{
                  L"dct_common::invokeDCTScript(): Temp folder - " + temp,
                  L"dct_common::invokeDCTScript(): CreateAgentDCT: command line: " + command,
              }));
    EXPECT_EQ(
        world.messages(CORE::kInfo),
        std::vector<std::wstring>{
            L"dct_common::invokeDCTScript(): Parameters received: \n    Features = \"USB\"\r\n   Version = \"2\"\r\n"});
    EXPECT_EQ(world.messages(CORE::kTrace).front(), L"dct_Agent::validate(): Temp folder - " + temp);
    EXPECT_EQ(world.messages(CORE::kTrace).back(),
              L"dct_Agent::monitorDCTProcess(): PID of DCT cscript: " + std::to_wstring(script.id));
  }
}

}  // namespace
