#include "core/crash/crash_handling.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <thread>

#include "core/base/exception.h"
#include "core/crash/crash_settings.h"
#include "core/format/format.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

using CORE::crashHandling;
using Names = std::set<std::wstring>;  // in lower case

const std::wstring kKey = L"HKLM\\Software\\Calvera\\Meridon\\Dump\\";
const std::wstring kFolder = L"C:\\ProgramData\\Calvera\\Meridon\\dumps";
const std::wstring kOldDump = L"mddct-2025-01-01-000000-9.dmp";
const std::wstring kNewDump = L"mddct-2026-11-13-041348-4242.dmp";
const std::wstring kThrown = L"Structured exception 0xc0000005 at 0x0000000000001234";

/// A machine whose program has its crash handling installed, with that many dumps.
struct CrashWorld {
  explicit CrashWorld(std::uint32_t count = 5, const Names& names = {}) {
    windows.registry.set(kKey + L"DumpCount", count);
    for (const std::wstring& name : names) {
      const bool own = name.starts_with(L"mddct");  // as it writes it itself
      windows.files.write(kFolder + L"\\" + (own ? L"mdDCT" + name.substr(5) : name), "old");
    }
    crashHandling::loadSettings();
    crashHandling::install();
  }
  /// What is thrown on the thread that crashes; nothing when the process ends.
  std::wstring crash(std::uint32_t code = platform::kExceptionAccessViolation) {
    try {
      windows.crash.raise(code, 0x1234);
    } catch (const CORE::coreException& e) {
      return e.message();
    }
    return L"";
  }
  /// The folder's files; only a new dump that is whole is one.
  Names dumps() const {
    Names names;
    for (const std::wstring& path : windows.files.list(kFolder)) {
      const std::wstring name = path.substr(kFolder.size() + 1);
      const bool whole = windows.files.read(path) == (name == kNewDump ? "MDMP type=1 code=c0000005" : "old");
      names.insert(whole ? name : L"a part of " + name);
    }
    return names;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
};

TEST(CrashHandling, Settings) {
  sim::Windows windows;
  const auto found = [&windows](const wchar_t* count, const wchar_t* type, const wchar_t* folder) {
    windows.registry.set(kKey + L"DumpCount", count);
    windows.registry.set(kKey + L"DumpType", type);
    windows.registry.set(kKey + L"DumpFolder", folder);
    const auto settings = CORE::CrashSettings::read();
    return CORE::format(L"%u %u %s", settings.dumpCount, settings.dumpType, settings.dumpFolder);
  };
  EXPECT_EQ(found(L"101", L"0x1002", L"%SystemRoot%\\a/b//"), L"100 4098 C:\\Windows\\a/b");
  EXPECT_EQ(found(L"-1", L"many", L"\\"), L"5 1 " + kFolder);
}

TEST(CrashHandling, TheRunGoesOnOnceFromAFailureOfItsCode) {
  CrashWorld world;
  EXPECT_EQ(world.crash(), kThrown);
  const auto fatal = world.log.messages(CORE::kFatal);
  ASSERT_TRUE(fatal.size() == world.log.lines().size() && fatal.size() >= 3) << world.log.text();
  EXPECT_EQ(fatal.front(), L"crashHandling::onUnhandledException(): " + kThrown + L" in thread " +
                               std::to_wstring(world.windows.processes.GetCurrentThreadId()));
  EXPECT_TRUE(fatal[1].starts_with(L"crashHandling::logStack():  0 ")) << world.log.text();
  EXPECT_EQ(fatal.back(), L"crashHandling::logDump(): Minidump: " + kFolder + L"\\mdDCT" + kNewDump.substr(5));
  EXPECT_EQ(world.windows.files.descriptorOf(kFolder), L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");

  EXPECT_EQ(world.crash(), L"");
  EXPECT_TRUE(world.log.has(CORE::kFatal, L"No minidump: this is not the first crash of the process"));
  const std::size_t logged = world.log.lines().size();
  EXPECT_EQ(world.crash(), L"");  // as when the handling itself crashes: the process ends at once, without a line
  EXPECT_EQ(world.log.lines().size(), logged);
  EXPECT_EQ(world.dumps(), Names{kNewDump});
}

TEST(CrashHandling, EverythingElseEndsTheProcess) {
  for (const auto& [name, code, onOtherThread] :
       {std::tuple("no stack left", platform::kExceptionStackOverflow, false),
        std::tuple("damaged heap", platform::kExceptionHeapCorruption, false),
        std::tuple("breakpoint", std::uint32_t{0x80000003}, false),
        std::tuple("another thread", platform::kExceptionAccessViolation, true)}) {
    CrashWorld world;
    const auto crash = [&world, name = name, code = code] { EXPECT_EQ(world.crash(code), L"") << name; };
    onOtherThread ? std::thread(crash).join() : crash();
    EXPECT_EQ(world.dumps().size(), 1U) << name << world.log.text();
  }
}

TEST(CrashHandling, RoomForDumps) {
  const std::wstring later = L"mddct-2025-01-02-000000-1.dmp";
  const std::wstring notOwn = L"mddct-2024-01-01-000000-.dmp";
  const std::tuple<const char*, std::uint32_t, Names, Names> rows[] = {
      {"the oldest goes", 3, {later, kOldDump, L"other.DMP"}, {later, kNewDump, L"other.dmp"}},
      {"others fill it", 2, {kOldDump, L"other.dmp", notOwn}, {notOwn, kOldDump, L"other.dmp"}},
      {"endings", 1, {L"a.dmpx", kOldDump + L".partial", L"b.dmp.partial"}, {L"a.dmpx", L"b.dmp.partial", kNewDump}},
  };
  for (const auto& [name, count, before, after] : rows) {
    SCOPED_TRACE(name);
    CrashWorld world(count, before);
    world.crash();
    EXPECT_EQ(world.dumps(), after) << world.log.text();
    EXPECT_EQ(world.log.count(L"No minidump: "), after.contains(kNewDump) ? 0U : 1U);
  }
}

/// Whatever fails: the crash ends as it should, and the folder holds no part of a dump.
TEST(CrashHandling, EachPlatformCallFailingInTurn) {
  for (std::size_t k = 1; !testing::Test::HasFailure(); ++k) {
    CrashWorld world(1, {kOldDump});
    auto& faults = world.windows.faults;
    const std::size_t nth = faults.calls().size() + k;
    faults.failCall(nth, platform::kErrorAccessDenied);
    EXPECT_EQ(world.crash(), kThrown) << "call " << k;
    const auto calls = faults.calls();
    if (calls.size() < nth) {
      EXPECT_GT(k, 20U);
      return;
    }
    SCOPED_TRACE(calls[nth - 1].name);
    const Names dumps = world.dumps();
    const bool written = dumps == Names{kNewDump};
    EXPECT_TRUE(written || dumps == Names{kOldDump} || dumps.empty());
    EXPECT_TRUE(calls[nth - 1].name == "WriteFile" || world.log.count(L"No minidump: ") == (written ? 0U : 1U));
    const auto explained = world.log.count(L": 0x5 Message 5.") + world.log.count(L" of at most ");
    EXPECT_EQ(explained, world.log.count(L"No minidump: ")) << world.log.text();
  }
}

void fail() { throw std::runtime_error("boom"); }

/// Terminates as the program would, and shows the log at the abort.
void terminate() noexcept {
  static CrashWorld world;
  std::signal(SIGABRT, [](int) {
    std::fputs(world.log.text().c_str(), stderr);
    std::_Exit(77);
  });
  fail();
}

TEST(CrashHandlingDeathTest, LogsTheExceptionAndAborts) {
  EXPECT_EXIT(terminate(), testing::ExitedWithCode(77),
              "FATAL crashHandling::onTerminate\\(\\): Unhandled exception: boom\n"
              "FATAL crashHandling::logDump\\(\\): Minidump: .*\n"
              "FATAL crashHandling::logStack\\(\\):  0 ");
}

}  // namespace
