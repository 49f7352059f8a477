#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "main/run.h"
#include "tests/unit/dct/script_world.h"

inline constexpr const wchar_t* kMutexName = L"Global\\meridon_lumen_dct_mutex";

/// A machine on which a run succeeds: the local system account, an installed agent whose script writes a small bundle,
/// and a server that takes everything.
struct RunWorld : ScriptWorld {
  RunWorld() {
    windows.processes.commandLine = L"mdDCT.exe -url https://store.example.net/c/b.zip?sig=abc";
    windows.processes.inlineChildren = true;
    windows.processes.onStart([this](sim::Child& child) { script(child); });
    windows.winHttp.delivery = sim::Delivery::kInline;
    windows.winHttp.storeBodyUpTo = 0;
    windows.winHttp.onRequest([this](const sim::HttpExchange&) {
      sim::HttpReply reply;
      reply.status = ++answered == failingRequest ? 409 : 201;
      return reply;
    });
  }

  ~RunWorld() {  // a script that nobody waited for still looks into this
    windows.processes.endAll();
    windows.winHttp.endAll();
    windows.kernel.joinThreads();
  }

  /// What a child of the run does.
  void script(sim::Child& child) {
    EXPECT_TRUE(!windows.processes.inlineChildren || windows.objects.mutexState(kMutexName) == "held");
    EXPECT_EQ(windows.system.currentDirectory(), L"C:\\Windows\\System32") << "from where powershell.exe is started";
    const std::wstring path = child.argumentAfter(L"-f");
    if (path.empty() && queryHangs) {
      child.hang();
    }
    if (path.empty()) {
      child.write(answer);
      return;
    }
    if (windows.processes.inlineChildren) {
      bundle = path;
    }
    if (writesBundle) {
      windows.files.writeSparse(bundle, bundleSize);
    }
    child.exit(exitCode);
  }

  /// One run, until nothing of it is at work any more.
  int run() {
    const int code = static_cast<int>(runProgram());
    windows.winHttp.release();
    windows.winHttp.waitUntilIdle();
    CORE::corelogger::instance().flush();
    return code;
  }

  bool bundleExists() const { return windows.files.exists(bundle); }

  /// The records that the driver itself has written, each as "ERROR wWinMain(): ..." and a line feed.
  std::wstring driverLines() const {
    const std::map<CORE::LogLevel, const wchar_t*> names = {
        {CORE::kError, L"ERROR "}, {CORE::kWarn, L"WARN "}, {CORE::kInfo, L"INFO "}};
    std::wstring out;
    for (const sim::LogLine& line : log.lines()) {
      for (const wchar_t* origin :
           {L"wWinMain", L"PrintUsage", L"DCT", L"lParse", L"IsSystem", L"dct_common::invokeDCTScript(): Could"}) {
        if (line.message.starts_with(origin)) {
          out += names.at(line.level) + line.message + L"\n";
        }
      }
    }
    return out;
  }

  std::string answer = R"({"featureData":{"AgentCore":{"supportedLogLevels":"INFO"}}})";
  std::uint64_t bundleSize = 10'000;
  std::wstring bundle = kBundlePath;  ///< as the script was told
  bool queryHangs = false;
  bool writesBundle = true;
  std::uint32_t exitCode = 0;
  std::size_t failingRequest = 0;  ///< from 1: the request that is answered 409
  std::size_t answered = 0;
};
