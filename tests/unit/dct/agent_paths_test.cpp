#include "dct/agent_paths.h"

#include "tests/unit/dct/script_world.h"

namespace {

TEST(AgentPaths, LoggingFolder) {
  const struct {
    const char* name;
    const wchar_t* useRegistry;
    const wchar_t* chosen;
    const wchar_t* programData;
    const wchar_t* localAppData;
    std::wstring want;
  } rows[] = {
      {"default", nullptr, L"D:\\x", L"C:\\ProgramData", L"C:\\L", L"C:\\ProgramData\\Calvera\\Meridon\\logs"},
      {"chosen", L"true", L"D:\\x", L"C:\\ProgramData", L"C:\\L", L"D:\\x"},
      {"chosen, separators behind", L"1", L"D:\\x\\/\\", L"C:\\ProgramData", L"C:\\L", L"D:\\x"},
      {"a drive's root", L"yes", L"D:\\", L"C:\\ProgramData", L"C:\\L", L"D:"},
      {"chosen but empty", L"true", L"\\", L"C:\\ProgramData", L"C:\\L", L"C:\\ProgramData\\Calvera\\Meridon\\logs"},
      {"not chosen", L"false", L"D:\\x", L"C:\\ProgramData", L"C:\\L", L"C:\\ProgramData\\Calvera\\Meridon\\logs"},
      {"no ProgramData", nullptr, nullptr, nullptr, L"C:\\L", L"C:\\L\\vdx-sdct"},
      {"nothing", nullptr, nullptr, nullptr, nullptr, L""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    sim::Windows windows;
    const auto set = [&windows](const wchar_t* name, const wchar_t* value) {
      if (value != nullptr) {
        windows.registry.set(std::wstring(L"HKLM\\Software\\Calvera\\Meridon\\") + name, value);
      }
    };
    const auto setVariable = [&windows](const wchar_t* name, const wchar_t* value) {
      windows.text.eraseVariable(name);
      if (value != nullptr) {
        windows.text.setVariable(name, value);
      }
    };
    set(L"Agent\\UseRegistryForLoggingPath", row.useRegistry);
    set(L"Log\\LogFileDirectory", row.chosen);
    setVariable(L"ProgramData", row.programData);
    setVariable(L"LOCALAPPDATA", row.localAppData);
    EXPECT_EQ(agentLoggingFolder(), row.want);
    dct_Agent agent;
    EXPECT_EQ(agent.getTempFolder(), row.want.empty() ? L"" : row.want + L"\\Temp");
  }
}

TEST(AgentPaths, PoliciesCountForTheInstallPath) {
  sim::Windows windows;
  EXPECT_EQ(agentInstallPath(), L"");
  windows.registry.set(kInstallPathSetting, L"C:\\plain");
  EXPECT_EQ(agentInstallPath(), L"C:\\plain");
  windows.registry.set(L"HKLM\\Software\\Policies\\Calvera\\Meridon\\Agent\\AgentInstallPath", L"C:\\policy");
  EXPECT_EQ(agentInstallPath(), L"C:\\policy");
}

TEST(AgentPaths, BundleNameIsTheLocalTime) {
  sim::Windows windows;
  EXPECT_EQ(newBundlePath(L"D:\\t"), L"D:\\t\\agentDCT_2026-11-13_04-13-48_123.zip");
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
