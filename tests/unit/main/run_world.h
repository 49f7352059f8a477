#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "main/run.h"
#include "tests/unit/dct/script_world.h"

inline constexpr const wchar_t* kMutexName = L"Global\\meridon_lumen_dct_mutex";

/// A simulated machine on which a run succeeds: the account is the local system, the agent's script writes a small
/// bundle, and the server accepts every request. A test changes one of the members at the end before run().
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

  ~RunWorld() {  // a script that nobody waited for still uses this object
    windows.processes.endAll();
    windows.winHttp.endAll();
    windows.kernel.joinThreads();
  }

  /// Stands in for powershell.exe: without "-f" on its command line it is the query, else the collection script.
  void script(sim::Child& child) {
    EXPECT_TRUE(!windows.processes.inlineChildren || windows.objects.mutexState(kMutexName) == "held");
    EXPECT_EQ(windows.system.currentDirectory(), L"C:\\Windows\\System32\\WindowsPowerShell\\v1.0")
        << "powershell.exe is searched for in it";
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

  /// Makes one run and waits until nothing of it is at work any more. Returns the exit code.
  int run() {
    const int code = static_cast<int>(runProgram());
    windows.winHttp.release();
    windows.winHttp.waitUntilIdle();
    CORE::corelogger::instance().flush();
    return code;
  }

  bool bundleExists() const { return windows.files.exists(bundle); }

  /// Returns the log records of main/ and of the collection, each as "ERROR wWinMain(): ..." and a line feed.
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

  std::string answer = R"({"featureData":{"AgentCore":{"supportedLogLevels":"INFO"}}})";  ///< of the query
  std::uint64_t bundleSize = 10'000;
  std::wstring bundle = kBundlePath;  ///< as the script's command line says
  bool queryHangs = false;
  bool writesBundle = true;
  std::uint32_t exitCode = 0;      ///< of the collection script
  std::size_t failingRequest = 0;  ///< counted from 1: it is answered by 409, the others by 201
  std::size_t answered = 0;        ///< requests so far
};
