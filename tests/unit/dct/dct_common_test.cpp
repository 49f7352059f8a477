#include "dct/dct_common.h"

#include "tests/unit/dct/script_world.h"

namespace {

constexpr const wchar_t* kTemp = L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp";
constexpr const wchar_t* kBundle =
    L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp\\agentDCT_2026-11-13_04-13-48_123.zip";

void writeBundle(ScriptWorld& world, sim::Child& child) {
  const std::wstring bundle = child.argumentAfter(L"-f");
  if (!bundle.empty()) {
    world.windows.files.write(bundle, "PK");
  }
}

TEST(InvokeDCTScript, StartsTheScriptExactlySo) {
  for (const wchar_t* install : {L"C:\\The Agent", L"C:\\The Agent\\"}) {
    ScriptWorld world;
    world.windows.registry.set(kInstallPathSetting, install);
    world.windows.files.write(L"C:\\The Agent\\dct\\vdx-support.ps1", "#");
    world.windows.processes.onStart([&world](sim::Child& child) { writeBundle(world, child); });
    CORE::PropertyBag request, result;
    EXPECT_TRUE(world.agent.invokeDCTScript(request, result));
    EXPECT_EQ(result.get(L"FileName").str(), kBundle);

    ASSERT_EQ(world.windows.processes.children().size(), 2U);
    const sim::ChildRecord query = world.windows.processes.children()[0];
    EXPECT_EQ(query.commandLine, kQueryCommandLine);
    const sim::ChildRecord script = world.windows.processes.children()[1];
    const std::wstring command =
        L"powershell.exe -nologo -ExecutionPolicy RemoteSigned -File \"C:\\The Agent\\dct\\vdx-support.ps1\" -f \"" +
        std::wstring(kBundle) + L"\" -d \"" + kTemp + L"\" -s";
    EXPECT_EQ(script.commandLine, command);
    EXPECT_EQ(script.folder, L"C:\\The Agent\\dct");
    EXPECT_EQ(script.flags, 0U);
    EXPECT_FALSE(script.inheritHandles);
    EXPECT_EQ(script.inheritedCount, 0U);
    EXPECT_EQ(world.messages(CORE::kDebug),
              (std::vector<std::wstring>{
                  std::wstring(L"dct_common::invokeDCTScript(): Temp folder - ") + kTemp,
                  L"dct_common::invokeDCTScript(): CreateAgentDCT: command line: " + command,
              }));
    EXPECT_EQ(world.messages(CORE::kInfo),
              std::vector<std::wstring>{L"dct_common::invokeDCTScript(): Parameters received: \n "});
  }
}

TEST(InvokeDCTScript, ShowsTheRequest) {
  ScriptWorld world;
  CORE::PropertyBag request, result;
  request.set(L"Features", L"USB");
  request.set(L"Version", L"2");
  world.agent.invokeDCTScript(request, result);
  EXPECT_EQ(world.messages(CORE::kInfo).at(0),
            L"dct_common::invokeDCTScript(): Parameters received: \n    Features = \"USB\"\r\n   Version = \"2\"\r\n");
}

TEST(InvokeDCTScript, Failures) {
  const struct {
    const char* name;
    void (*prepare)(sim::Windows&);
    std::uint32_t code;
    std::wstring text;
    std::size_t children;
  } rows[] = {
      {"temporary folder",
       [](sim::Windows& windows) {
         windows.files.erase(L"C:\\ProgramData\\Calvera");
         windows.faults.failAll("CreateDirectoryW", 5);
       },
       130, L"Cannot create the temporary directory.", 0},
      {"no environment",
       [](sim::Windows& windows) {
         windows.text.eraseVariable(L"ProgramData");
         windows.text.eraseVariable(L"LOCALAPPDATA");
       },
       130, L"Cannot create the temporary directory.", 0},
      {"install path", [](sim::Windows& windows) { windows.registry.clear(); }, 80,
       L"Cannot get the AgentInstallPath from registry", 0},
      {"script", [](sim::Windows& windows) { windows.files.erase(L"C:\\Agent\\dct\\vdx-support.ps1"); }, 70,
       L"The DCT script is not found on disk.", 0},
      {"start", [](sim::Windows& windows) { windows.faults.failNth("CreateProcessW", 2, 5); }, 60,
       L"The DCT script failed to start, error: Message 5.", 1},
      {"no bundle", [](sim::Windows&) {}, 0xFFFFFFFF, L"The DCT script FAILED. Process exited with error Message 0..",
       2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ScriptWorld world;
    row.prepare(world.windows);
    CORE::PropertyBag request, result;
    EXPECT_FALSE(world.agent.invokeDCTScript(request, result));
    EXPECT_EQ(result.getErrorCode(), row.code);
    EXPECT_EQ(result.getErrorText().str(), row.text);
    EXPECT_EQ(result.get(L"FileName").str(), L"");
    EXPECT_EQ(world.windows.processes.children().size(), row.children);
    const auto errors = world.messages(CORE::kError);
    EXPECT_EQ(std::count(errors.begin(), errors.end(),
                         std::wstring(L"dct_common::invokeDCTScript(): Could not create process.")),
              row.code == 60 ? 1 : 0);
  }
}

TEST(InvokeDCTScript, MakesTheTemporaryFolder) {
  ScriptWorld world;
  world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\UseRegistryForLoggingPath", L"true");
  world.windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Log\\LogFileDirectory", L"D:\\deep\\logs\\");
  world.windows.processes.onStart([&world](sim::Child& child) { writeBundle(world, child); });
  CORE::PropertyBag request, result;
  EXPECT_TRUE(world.agent.invokeDCTScript(request, result));
  EXPECT_TRUE(world.windows.files.isFolder(L"D:\\deep\\logs\\Temp"));
  EXPECT_EQ(world.messages(CORE::kTrace).at(0), L"dct_Agent::validate(): Temp folder - D:\\deep\\logs\\Temp");
}

}  // namespace
