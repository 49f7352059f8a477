#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "dct/dct_agent.h"
#include "dct/query/capability_query.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

using Texts = std::vector<std::wstring>;

inline const std::wstring kBundlePath =
    L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp\\agentDCT_2026-11-13_04-13-48_123.zip";

/// A machine with an installed agent. Nothing else may be left open at its end.
struct ScriptWorld {
  ScriptWorld() {
    setSupportedLists({});
    windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\AgentInstallPath", L"C:\\Agent");
    windows.files.write(L"C:\\Agent\\dct\\vdx-support.ps1", "#");
    windows.text.setVariable(L"ProgramData", L"C:\\ProgramData");
  }
  ~ScriptWorld() {
    windows.processes.endAll();
    CORE::corelogger::instance().stop();  // whose files would count as open
    EXPECT_EQ(windows.openHandlesText(), mayStayOpen);
    setSupportedLists({});
  }

  /// Every child from now on prints that.
  void print(const std::string& text) {
    windows.processes.onStart([text](sim::Child& child) { child.write(text); });
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  std::string mayStayOpen;
  dct_Agent agent;
};
