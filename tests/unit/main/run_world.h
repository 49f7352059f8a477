#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dct/capability_query.h"
#include "main/run.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

inline constexpr const wchar_t* kBundlePath =
    L"C:\\ProgramData\\Calvera\\Meridon\\logs\\Temp\\agentDCT_2026-11-13_04-13-48_123.zip";
inline constexpr const wchar_t* kMutexName = L"Global\\meridon_lumen_dct_mutex";

/// A machine on which a run succeeds: the local system account, an installed agent whose script writes a small bundle,
/// and a server that takes everything.
class RunWorld {
 public:
  RunWorld() {
    forgetSupportedListsForTests();
    windows.processes.commandLine = L"mdDCT.exe -url https://store.example.net/c/b.zip?sig=abc";
    windows.processes.inlineChildren = true;
    windows.text.setVariable(L"ProgramData", L"C:\\ProgramData");
    windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Agent\\AgentInstallPath", L"C:\\Agent");
    windows.files.write(L"C:\\Agent\\dct\\vdx-support.ps1", "#");
    windows.processes.onStart([this](sim::Child& child) { script(child); });
    windows.winHttp.delivery = sim::Delivery::kInline;
    windows.winHttp.storeBodyUpTo = 0;
    windows.winHttp.onRequest([this](const sim::HttpExchange&) {
      sim::HttpReply reply;
      reply.status = ++answered == failingRequest ? 409 : 201;
      return reply;
    });
  }
  ~RunWorld() { forgetSupportedListsForTests(); }
  RunWorld(const RunWorld&) = delete;
  RunWorld& operator=(const RunWorld&) = delete;

  /// One run, until nothing of it is at work any more, and what must hold after every run.
  int run() {
    const int code = runProgram();
    windows.winHttp.release();
    windows.winHttp.waitUntilIdle();
    CORE::corelogger::instance().flush();
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
    EXPECT_EQ(windows.processes.running(), 0U);
    return code;
  }

  /// What the run left open, beside the log files.
  std::string leftOpen() {
    CORE::corelogger::instance().stop();
    return windows.openHandlesText();
  }

  bool bundleExists() const { return windows.files.exists(kBundlePath); }

  /// The lines that the driver itself has written, as "ERROR wWinMain(): ...".
  std::vector<std::string> driverLines() const {
    std::vector<std::string> out;
    for (const sim::LogLine& line : log.lines()) {
      for (const wchar_t* origin : {L"wWinMain", L"PrintUsage", L"DCT", L"lParse", L"IsSystem"}) {
        if (line.message.starts_with(origin)) {
          out.push_back((line.level == CORE::kError  ? "ERROR "
                         : line.level == CORE::kWarn ? "WARN "
                                                     : "INFO ") +
                        std::string(line.message.begin(), line.message.end()));
        }
      }
    }
    return out;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  std::string answer = R"({"featureData":{"AgentCore":{"supportedLogLevels":"INFO"}}})";
  std::uint64_t bundleSize = 10'000;
  bool writesBundle = true;
  std::uint32_t exitCode = 0;
  std::size_t failingRequest = 0;  ///< from 1: the request that is answered 409
  std::size_t answered = 0;

 private:
  void script(sim::Child& child) {
    const std::wstring bundle = child.argumentAfter(L"-f");
    if (bundle.empty()) {
      child.write(answer);
      return;
    }
    if (writesBundle) {
      windows.files.writeSparse(bundle, bundleSize);
    }
    child.exit(exitCode);
  }
};
