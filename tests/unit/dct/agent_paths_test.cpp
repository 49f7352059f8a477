#include "dct/agent_paths.h"

#include "tests/unit/dct/script_world.h"

namespace {

const std::wstring kProductKey = L"HKLM\\Software\\Calvera\\Meridon\\";

TEST(AgentPaths, TempFolder) {
  const std::wstring byDefault = L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp";
  dct_Agent agent;
  sim::Windows windows;
  windows.text.setVariable(L"ProgramData", L"C:\\ProgramData");
  windows.text.setVariable(L"LOCALAPPDATA", L"C:\\L");
  windows.registry.set(kProductKey + L"Log\\LogFileDirectory", L"D:\\x");
  EXPECT_EQ(agent.getTempFolder(), byDefault);
  const struct {
    const wchar_t* useRegistry;
    const wchar_t* chosen;
    std::wstring want;
  } rows[] = {
      {L"true", L"D:\\x", L"D:\\x\\Temp"}, {L"1", L"D:\\x\\/\\", L"D:\\x\\Temp"}, {L"yes", L"D:\\", L"D:\\Temp"},
      {L"true", L"\\", byDefault},         {L"false", L"D:\\x", byDefault},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE("row " + std::to_string(&row - rows));
    windows.registry.set(kProductKey + L"Agent\\UseRegistryForLoggingPath", row.useRegistry);
    windows.registry.set(kProductKey + L"Log\\LogFileDirectory", row.chosen);
    EXPECT_EQ(agent.getTempFolder(), row.want);
  }
  windows.text.eraseVariable(L"ProgramData");
  EXPECT_EQ(agent.getTempFolder(), L"C:\\L\\vdx-sdct\\Temp");
  windows.text.eraseVariable(L"LOCALAPPDATA");
  EXPECT_EQ(agent.getTempFolder(), L"");
}

TEST(AgentPaths, BundleNameIsTheLocalTime) {
  sim::Windows windows;
  windows.clock.biasMinutes = 300;
  EXPECT_EQ(newBundlePath(L"D:\\t"), L"D:\\t\\agentDCT_2026-11-12_23-13-48_123.zip");
  windows.clock.set(platform::SystemTime{2027, 1, 0, 2, 8, 4, 5, 6});
  EXPECT_EQ(newBundlePath(L"D:\\t"), L"D:\\t\\agentDCT_2027-01-02_03-04-05_006.zip");
  for (const char* call : {"FileTimeToLocalFileTime", "FileTimeToSystemTime"}) {
    windows.faults.failNth(call, 1, 87);
    EXPECT_EQ(newBundlePath(L"D:\\t"), L"D:\\t\\agentDCT_2027-01-02_08-04-05_006.zip") << call;
  }
}

}  // namespace
