#include "core/crash_handling.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <latch>
#include <optional>
#include <set>
#include <stdexcept>
#include <thread>

#include "core/convert.h"
#include "core/crash_settings.h"
#include "core/exception.h"
#include "core/minidump_writer.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

using CORE::crashHandling;
using Names = std::vector<std::wstring>;

const std::wstring kFolder = L"C:\\ProgramData\\Calvera\\Meridon\\dumps";
const std::wstring kOldDump = L"mdDCT-2025-01-01-000000-9.dmp";
const std::wstring kNewDump = L"mdDCT-2026-11-13-041348-4242.dmp";
const std::string kWholeDump = "MDMP type=1 code=c0000005";
constexpr std::uint32_t kCode = platform::kExceptionAccessViolation;

/// A machine whose program has its crash handling installed, with that many dumps.
struct CrashWorld {
  explicit CrashWorld(std::uint32_t count = 5) {
    windows.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Dump\\DumpCount", count);
    crashHandling::loadSettings();
    crashHandling::install();
  }

  /// What is thrown on the thread that crashes; nothing when the process ends.
  std::optional<std::wstring> crash(std::uint32_t code = kCode, std::uintptr_t address = 0x1234) {
    try {
      windows.crash.raise(code, address);
    } catch (const CORE::coreException& e) {
      return e.message();
    }
    return std::nullopt;
  }
  Names dumps() const {
    Names names;
    for (const std::wstring& path : windows.files.list(kFolder)) {
      const std::wstring name = path.substr(kFolder.size() + 1);  // in lower case
      names.push_back(name.starts_with(L"mddct") ? L"mdDCT" + name.substr(5) : name);
    }
    return names;
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
};

TEST(CrashSettings, AreThoseOfTheRegistry) {
  struct Row {
    const wchar_t *count, *type, *folder;
    std::uint32_t dumpCount, dumpType;
    std::wstring dumpFolder;
  };
  const Row rows[] = {
      {L"", L"", L"", 5, 1, kFolder},
      {L"0", L"2", L"D:\\Dumps\\", 0, 2, L"D:\\Dumps"},
      {L" 100", L"0x1002", L"%SystemRoot%\\d", 100, 0x1002, L"C:\\Windows\\d"},
      {L"101", L"many", L"\\", 100, 1, kFolder},
      {L"-1", L"99999999999", L"E:\\a/b//", 5, 0xFFFFFFFF, L"E:\\a/b"},
  };
  for (const Row& row : rows) {
    sim::Windows windows;
    const std::wstring key = L"HKLM\\Software\\Calvera\\Meridon\\Dump\\";
    windows.registry.set(key + L"DumpCount", row.count);
    windows.registry.set(key + L"DumpType", row.type);
    windows.registry.set(key + L"DumpFolder", row.folder);
    const auto settings = CORE::CrashSettings::read();
    EXPECT_EQ(settings.dumpCount, row.dumpCount);
    EXPECT_EQ(settings.dumpType, row.dumpType);
    EXPECT_EQ(settings.dumpFolder, row.dumpFolder);
  }
  sim::Windows windows;
  windows.text.eraseVariable(L"ProgramData");
  windows.registry.set(L"HKLM\\Software\\Policies\\Vantix, Inc.\\Vantix VDX\\Dump\\DumpCount", 7U);
  EXPECT_EQ(CORE::CrashSettings::read().dumpCount, 7U);
  EXPECT_EQ(CORE::CrashSettings::read().dumpFolder, L"C:\\Program Files\\Meridon\\dumps");
}

TEST(CrashHandling, TheRunGoesOnOnceFromAFailureOfItsCode) {
  CrashWorld world;
  EXPECT_EQ(world.crash(), L"Structured exception 0xc0000005 at 0x0000000000001234");
  const auto lines = world.log.lines();
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines.front().message,
            L"crashHandling::onUnhandledException(): Structured exception 0xc0000005 at 0x0000000000001234 in thread " +
                std::to_wstring(world.windows.processes.GetCurrentThreadId()));
  EXPECT_TRUE(lines[1].message.starts_with(L"crashHandling::logStack():  0 ")) << world.log.text();
  EXPECT_EQ(lines.back().message, L"crashHandling::logDump(): Minidump: " + kFolder + L"\\" + kNewDump);
  for (const auto& line : lines) {
    EXPECT_EQ(line.level, CORE::kFatal);
  }
  const std::string dump = world.windows.files.read(kFolder + L"\\" + kNewDump);
  EXPECT_EQ(dump, kWholeDump);
  EXPECT_EQ(world.windows.files.descriptorOf(kFolder), L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");

  EXPECT_EQ(world.crash(), std::nullopt);
  EXPECT_TRUE(world.log.has(CORE::kFatal, L"No minidump: this is not the first crash of the process"));
  EXPECT_EQ(world.dumps().size(), 1U);
  const std::size_t told = world.log.lines().size();
  EXPECT_EQ(world.crash(), std::nullopt);  // as a crash of the handling itself: at once, without a word
  EXPECT_EQ(world.log.lines().size(), told);
}

TEST(CrashHandling, EverythingElseEndsTheProcess) {
  for (const std::uint32_t code :
       {platform::kExceptionStackOverflow, platform::kExceptionHeapCorruption, std::uint32_t{0x80000003}}) {
    CrashWorld world;
    EXPECT_EQ(world.crash(code), std::nullopt);
    EXPECT_EQ(world.dumps().size(), 1U) << world.log.text();
  }
  CrashWorld world;
  std::thread([&world] { EXPECT_EQ(world.crash(), std::nullopt); }).join();
  EXPECT_EQ(world.dumps().size(), 1U) << world.log.text();
}

TEST(CrashHandling, RoomForDumps) {
  const std::wstring later = L"mdDCT-2025-01-02-000000-1.dmp";
  const std::wstring notOwn = L"mdDCT-2024-01-01-000000-.dmp";
  struct Row {
    std::uint32_t count;
    Names before, after;
  };
  const Row rows[] = {
      {0, {kOldDump}, {kOldDump}},
      {1, {later, kOldDump}, {kNewDump}},
      {3, {later, kOldDump, L"other.DMP"}, {later, kNewDump, L"other.dmp"}},
      {2, {kOldDump, L"other.dmp", notOwn}, {notOwn, kOldDump, L"other.dmp"}},
      {1, {L"a.dmpx", kOldDump + L".partial", L"b.dmp.partial"}, {L"a.dmpx", L"b.dmp.partial", kNewDump}},
  };
  for (const Row& row : rows) {
    CrashWorld world(row.count);
    for (const std::wstring& name : row.before) {
      world.windows.files.write(kFolder + L"\\" + name, "old");
    }
    world.crash();
    Names after = row.after;
    std::sort(after.begin(), after.end());
    Names found = world.dumps();
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, after) << world.log.text();
    const bool written = std::find(after.begin(), after.end(), kNewDump) != after.end();
    EXPECT_EQ(world.log.count(L"No minidump: "), written ? 0U : 1U);
  }

  CrashWorld world(1);  // a dump that somebody reads stays, and so does a partial one that somebody writes
  auto& files = world.windows.files;
  const std::wstring paths[] = {kFolder + L"\\" + kOldDump, kFolder + L"\\" + kOldDump + L".partial"};
  platform::KernelHandle open[2];
  for (const std::size_t i : {0U, 1U}) {
    files.write(paths[i], "old");
    open[i] = files.CreateFileW(paths[i], platform::kGenericRead, 0, platform::kOpenExisting, 0).value;
  }
  world.crash();
  EXPECT_EQ(world.dumps(), (Names{kOldDump, kOldDump + L".partial"}));
  EXPECT_TRUE(world.log.has(CORE::kFatal, kFolder + L" holds 1 of at most 1 dumps"));
}

/// Whatever fails: the crash ends as it should, and the folder holds no part of a dump.
TEST(CrashHandling, EachPlatformCallFailingInTurn) {
  std::size_t calls = 0;
  for (std::size_t k = 0; k <= calls && !testing::Test::HasFailure(); ++k) {
    CrashWorld world(1);
    auto& faults = world.windows.faults;
    world.windows.files.write(kFolder + L"\\" + kOldDump, "old");
    const std::size_t before = faults.calls().size();
    if (k > 0) {
      faults.failCall(before + k, platform::kErrorAccessDenied);
    }
    EXPECT_EQ(world.crash(), L"Structured exception 0xc0000005 at 0x0000000000001234");
    if (k == 0) {
      calls = faults.calls().size() - before;
    }
    const std::string failed = k > 0 ? faults.calls()[before + k - 1] : "none";
    const Names dumps = world.dumps();
    EXPECT_LE(dumps.size(), 1U) << failed;
    const bool written = !dumps.empty() && dumps[0] != kOldDump;
    EXPECT_TRUE(dumps.empty() || dumps[0].ends_with(L".dmp")) << failed;
    EXPECT_TRUE(!written || world.windows.files.read(kFolder + L"\\" + dumps[0]) == kWholeDump) << failed;
    const std::set<std::string> fatal = {"loadDbgHelp", "FindFirstFileW",    "FindNextFileW",
                                         "DeleteFileW", "MiniDumpWriteDump", "MoveFileExW"};
    EXPECT_TRUE(written || !fatal.contains(failed) || world.log.count(L"No minidump: ") == 1) << failed;
    EXPECT_EQ(world.windows.misuse(), std::vector<std::string>{}) << failed;
  }
}

TEST(MinidumpWriter, WaitsOnlySoLong) {
  static std::latch ended(1);
  auto& writer = *new CORE::MinidumpWriter([](const platform::CrashInfo*) noexcept { ended.wait(); },
                                           std::chrono::milliseconds(20));
  EXPECT_FALSE(writer.perform(nullptr));  // there is no thread
  writer.start();
  EXPECT_FALSE(writer.perform(nullptr));
  EXPECT_FALSE(writer.perform(nullptr));
  ended.count_down();
}

constexpr int kAborted = 77;
const sim::LogCapture* shown = nullptr;

/// Terminates as the program would, and shows the log at the abort.
void terminate(void (*failing)() noexcept) {
  CrashWorld world;
  shown = &world.log;
  std::signal(SIGABRT, [](int) {
    std::fputs(shown->text().c_str(), stderr);
    std::_Exit(kAborted);
  });
  failing();
}

void fail() { throw std::runtime_error("boom"); }

TEST(CrashHandlingDeathTest, LogsTheExceptionAndAborts) {
  EXPECT_EXIT(terminate([]() noexcept { fail(); }), testing::ExitedWithCode(kAborted),
              "FATAL crashHandling::onTerminate\\(\\): Unhandled exception: boom\n"
              "FATAL crashHandling::logDump\\(\\): Minidump: .*\n"
              "FATAL crashHandling::logStack\\(\\):  0 ");
  EXPECT_EXIT(terminate([]() noexcept { std::terminate(); }), testing::ExitedWithCode(kAborted),
              "FATAL crashHandling::onTerminate\\(\\): Unhandled exception: no exception");
}

}  // namespace
