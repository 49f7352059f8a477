#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dct/capability_query.h"
#include "dct/dct_agent.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

inline constexpr const wchar_t* kInstallPathSetting = L"HKLM\\Software\\Calvera\\Meridon\\Agent\\AgentInstallPath";

inline constexpr const wchar_t* kTempFolder = L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp";
inline const std::wstring kBundlePath = std::wstring(kTempFolder) + L"\\agentDCT_2026-11-13_04-13-48_123.zip";

/// A machine with an installed agent whose query script answers as told. Nothing else may be left open at its end.
struct ScriptWorld {
  ScriptWorld() {
    forgetSupportedListsForTests();
    windows.registry.set(kInstallPathSetting, L"C:\\Agent");
    windows.files.write(L"C:\\Agent\\dct\\vdx-support.ps1", "#");
    windows.text.setVariable(L"ProgramData", L"C:\\ProgramData");
  }
  ~ScriptWorld() {
    windows.processes.endAll();
    CORE::corelogger::instance().stop();  // whose files would count as open
    EXPECT_EQ(windows.openHandlesText(), mayStayOpen);
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
    forgetSupportedListsForTests();
  }

  /// The script of a query child that prints a text.
  static auto printing(std::string text) {
    return [text](sim::Child& child) { child.write(text); };
  }

  /// The messages of that level so far.
  std::vector<std::wstring> messages(CORE::LogLevel level) const { return log.messages(level); }

  sim::Windows windows;
  sim::LogCapture log{windows};
  std::string mayStayOpen;
  dct_Agent agent;
};
