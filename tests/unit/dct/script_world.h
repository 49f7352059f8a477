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

/// A simulated machine with an installed agent whose script does nothing. At its end every handle must be closed.
struct ScriptWorld {
  ScriptWorld() {
    setSupportedLists({});
    windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\AgentInstallPath", L"C:\\Agent");
    windows.files.write(L"C:\\Agent\\dct\\vdx-support.ps1", "#");
    windows.text.setVariable(L"ProgramData", L"C:\\ProgramData");
  }
  ~ScriptWorld() {
    windows.processes.endAll();
    CORE::corelogger::instance().stop();  // or its files would count as open
    EXPECT_EQ(windows.openHandlesText(), mayStayOpen);
    setSupportedLists({});
  }

  /// Makes every child from now on write that text and end.
  void print(const std::string& text) {
    windows.processes.onStart([text](sim::Child& child) { child.write(text); });
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  std::string mayStayOpen;  ///< handles that are not closed: "1 mutex"
  dct_Agent agent;
};
