#include "dct/agent_paths.h"

#include "dct/ensure_folder.h"
#include "tests/unit/dct/script_world.h"

namespace {

TEST(AgentPaths, FolderAndName) {
  const std::wstring key = L"HKLM\\Software\\Calvera\\Meridon\\";
  const std::wstring byDefault = L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp";
  ScriptWorld world;
  const std::tuple<const wchar_t*, const wchar_t*, std::wstring> rows[] = {
      {L"true", L"D:\\x\\/\\", L"D:\\x\\Temp"}, {L"true", L"\\", byDefault}, {L"false", L"D:\\x", byDefault}};
  for (const auto& [useRegistry, chosen, wanted] : rows) {
    world.windows.registry.set(key + L"Agent\\UseRegistryForLoggingPath", useRegistry);
    world.windows.registry.set(key + L"Log\\LogFileDirectory", chosen);
    EXPECT_EQ(world.agent.getTempFolder(), wanted) << testing::PrintToString(chosen);
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
    EXPECT_EQ(parentPath(path), parent);
  }
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
  EXPECT_FALSE(ensureFolder(L"") || ensureFolder(L"C:\\" + std::wstring(32765, L'a')));
}

}  // namespace
