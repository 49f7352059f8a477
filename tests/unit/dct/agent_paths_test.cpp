#include "dct/agent_paths.h"

#include "dct/ensure_folder.h"
#include "tests/unit/dct/script_world.h"

namespace {

TEST(AgentPaths, TempFolder) {
  const std::wstring key = L"HKLM\\Software\\Calvera\\Meridon\\";
  const std::wstring byDefault = L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp";
  ScriptWorld world;
  world.windows.text.setVariable(L"LOCALAPPDATA", L"C:\\L");
  const std::tuple<const wchar_t*, const wchar_t*, std::wstring> rows[] = {{L"", L"D:\\x", byDefault},
                                                                           {L"true", L"D:\\x\\/\\", L"D:\\x\\Temp"},
                                                                           {L"yes", L"D:\\", L"D:\\Temp"},
                                                                           {L"true", L"\\", byDefault},
                                                                           {L"false", L"D:\\x", byDefault}};
  for (const auto& [useRegistry, chosen, wanted] : rows) {
    world.windows.registry.set(key + L"Agent\\UseRegistryForLoggingPath", useRegistry);
    world.windows.registry.set(key + L"Log\\LogFileDirectory", chosen);
    EXPECT_EQ(world.agent.getTempFolder(), wanted) << testing::PrintToString(chosen);
  }
  world.windows.text.eraseVariable(L"ProgramData");
  EXPECT_EQ(world.agent.getTempFolder(), L"C:\\L\\vdx-sdct\\Temp");
  world.windows.text.eraseVariable(L"LOCALAPPDATA");
  EXPECT_EQ(world.agent.getTempFolder(), L"");
}

TEST(AgentPaths, BundleNameIsTheLocalTime) {
  sim::Windows windows;
  windows.clock.set(platform::SystemTime{2027, 1, 0, 2, 8, 4, 5, 6});
  windows.clock.biasMinutes = 300;
  EXPECT_EQ(newBundlePath(L"D:\\t"), L"D:\\t\\agentDCT_2027-01-02_03-04-05_006.zip");
  windows.faults.failNth("FileTimeToLocalFileTime", 1, 87);
  EXPECT_EQ(newBundlePath(L"D:\\t"), L"D:\\t\\agentDCT_2027-01-02_08-04-05_006.zip");
}

TEST(EnsureFolder, ParentsByTextAlone) {
  for (const wchar_t* const same : {L"C:\\", L"C:", L"\\\\server", L""}) {
    EXPECT_EQ(parentPath(same), same);
  }
  EXPECT_EQ(parentPath(L"C:\\a"), L"C:\\");
  EXPECT_EQ(parentPath(L"C:a"), L"C:");
  EXPECT_EQ(parentPath(L"C:/a\\\\b\\"), L"C:/a");
  EXPECT_EQ(parentPath(L"\\\\server\\share\\x"), L"\\\\server\\share");
  EXPECT_EQ(parentPath(L"\\\\server\\share\\"), L"\\\\server\\share");
  EXPECT_EQ(parentPath(L"\\a"), L"\\");
  EXPECT_EQ(parentPath(L"a"), L"");
}

TEST(EnsureFolder, CreatesTheMissingLevelsOrFails) {
  sim::Windows windows;
  windows.files.write(L"D:\\file", "a name that is taken counts as there");
  EXPECT_TRUE(ensureFolder(L"D:\\file"));
  windows.faults.failNth("CreateDirectoryW", 2, platform::kErrorAlreadyExists);
  EXPECT_FALSE(ensureFolder(L"D:\\a\\b/c\\"));
  EXPECT_EQ(windows.faults.callCount("CreateDirectoryW"), 2U) << "goes on after a failure";
  EXPECT_TRUE(ensureFolder(L"D:\\a\\b/c\\"));
  EXPECT_TRUE(windows.files.isFolder(L"D:\\a\\b\\c"));
  EXPECT_FALSE(ensureFolder(L""));
  std::wstring hostile = L"C:";
  while (hostile.size() < 2'000'000) {
    hostile += L"\\a";
  }
  EXPECT_FALSE(ensureFolder(hostile));
}

}  // namespace
