#include "core/log/logger.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <thread>

#include "core/base/unicode.h"
#include "core/log/log_context.h"
#include "core/log/log_session.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

// What comes into the log, which files it is in over the days, and when it is silent.

namespace {

using CORE::corelogger;
using Messages = std::vector<std::wstring>;

const std::wstring kFolder = L"C:\\Deep\\er\\logs\\";
constexpr std::uint64_t kHour = 3600 * 1000;

struct LoggerTest : testing::Test {
  LoggerTest() { set(L"LogFileDirectory", kFolder); }
  ~LoggerTest() override {
    logger_.stop();
    EXPECT_EQ(windows_.openHandlesText(), "");
  }

  void set(const std::wstring& key, const std::wstring& value) {
    windows_.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Log\\" + key, value);
  }
  /// One process that logs these messages and does something after each.
  void process(
      const Messages& messages, const std::function<void()>& after = [] {}) {
    logger_.start(L"test", corelogger::Writer::kCaller);
    for (const std::wstring& message : messages) {
      CORE::log(CORE::kInfo, L"%s", message);
      after();
    }
    logger_.stop();
  }
  /// Date and time of each file, oldest first.
  Messages files() const {
    Messages out;
    for (const std::wstring& path : windows_.files.list(kFolder)) {
      out.push_back(path.substr(path.size() - 21, 17));
    }
    return out;
  }
  /// The messages in the files of that base name, without those of the logger itself when it opens one.
  Messages messages(const std::wstring& base = L"debug") {
    logger_.flush();
    Messages out;
    for (const std::wstring& path : windows_.files.list(kFolder)) {
      if (path.find(L"\\" + base + L"-") != path.npos) {
        for (const sim::LogLine& line : sim::parseLog(CORE::toWideLossy(windows_.files.read(path)))) {
          out.push_back(line.message);
        }
      }
    }
    std::erase_if(out, [](const std::wstring& message) {
      return message.starts_with(L"Log for ") || message.starts_with(L"Opening ") || message.starts_with(L"Program '");
    });
    return out;
  }

  sim::Windows windows_;
  corelogger& logger_ = corelogger::instance();
};

TEST_F(LoggerTest, AdmissionAndFiles) {
  using namespace std::literals;
  // What is on; the lowest level that is admitted; the records in both files when each level has one; the files.
  for (const auto& [on, lowest, inLog, inDebug, count] :
       {std::tuple(L"log debug trace event"sv, 0U, 4U, 6U, 2U), std::tuple(L"log"sv, 2U, 4U, 0U, 1U),
        std::tuple(L"debug"sv, 1U, 0U, 5U, 1U), std::tuple(L"trace"sv, 0U, 0U, 6U, 1U),
        std::tuple(L"event"sv, 2U, 0U, 0U, 0U), std::tuple(L""sv, 6U, 0U, 0U, 0U)}) {
    SCOPED_TRACE("on: " + CORE::toUtf8Lossy(on));
    windows_.files.erase(kFolder);
    for (const std::wstring name : {L"log", L"debug", L"trace", L"event"}) {
      set(name + L"Enabled", on.find(name) != on.npos ? L"true" : L"false");
    }
    logger_.start(L"test");
    for (std::uint32_t level = 0; level < 6; ++level) {
      EXPECT_EQ(CORE::logAdmits(level), level >= lowest) << level;
      CORE::log(static_cast<CORE::LogLevel>(level), L"level %u", level);
    }
    EXPECT_EQ(std::tuple(messages(L"log").size(), messages().size()), std::tuple(inLog, inDebug));
    EXPECT_EQ(files().size(), count);
  }
}

TEST_F(LoggerTest, WholeLinesFromStartToStop) {
  CORE::log(CORE::kFatal, L"before");
  logger_.start(L"test");
  CORE::setLogContext(std::wstring(70, L'c'));
  CORE::log(CORE::kInfo, L"wWinMain(): %s %d \u00E4", L"text", 5);
  logger_.write(77, L"AUDIT", std::wstring(8193, L'x'), {});
  CORE::setLogContext(L"worker");
  logger_.setMessageFilter([](std::uint32_t level, std::wstring& message) {
    message.insert(0, level == CORE::kWarn ? 8192 : 1, L'+');
    level == CORE::kFatal ? throw std::runtime_error("filter") : void();
  });
  for (const auto level : {CORE::kDebug, CORE::kInfo, CORE::kWarn, CORE::kFatal}) {
    CORE::log(level, L"a");
  }
  logger_.setMessageFilter(nullptr);
  logger_.stop();
  CORE::logArguments(CORE::kFatal, L"between", {});
  const std::string rest =
      CORE::formatNarrow("(1092-%04X) <%s> [test] ", windows_.processes.GetCurrentThreadId(), std::string(63, 'c'));
  const std::string lines = "**********\r\n2026-11-13T04:13:48.123Z INFO  " + rest + "wWinMain(): text 5 \xC3\xA4\r\n" +
                            "2026-11-13T04:13:48.123Z AUDIT " + rest + std::string(8192, 'x') + "\r\n";
  EXPECT_NE(windows_.files.read(kFolder + L"log-2026-11-13-041348.txt").find(lines), std::string::npos);
  EXPECT_EQ(messages(),
            (Messages{L"wWinMain(): text 5 \u00E4", std::wstring(8192, L'x'), L"a", L"+a", std::wstring(8192, L'+'),
                      L"+System exception occurred while attempting to log a message"}));
  EXPECT_EQ(windows_.files.descriptorOf(kFolder), L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
}

TEST_F(LoggerTest, OverflowDropsAndSaysSoOnce) {
  set(L"msgQueueSizeThreshold", L"3");
  set(L"batchLogMessageCount", L"2");
  CORE::LogSession session(CORE::LogSettings::read(), L"test");
  for (const std::wstring messages : {L"abcdef", L"g", L"hijklm"}) {  // the writer catches up in between
    for (const wchar_t message : messages) {
      session.submit(CORE::makeLogRecord(CORE::kInfo, {}, {&message, 1}));
    }
    session.close();
    session.run();
  }
  EXPECT_EQ(windows_.faults.callCount("WriteFile"), 10U);  // batches of 2 2, 1, 2 2 records, for each of two files
  const std::wstring notice = L"Log message threshold 3 reached dropping log messages for exe mdDCT.exe with PID 4242.";
  EXPECT_EQ(messages(L"log"), (Messages{L"a", L"b", L"c", notice, L"g", L"h", L"i", L"j", notice}));
  session.closeFiles();
}

TEST_F(LoggerTest, ManyThreadsEachLineWholeAndInOrder) {
  logger_.start(L"test");
  std::vector<std::jthread> threads;
  for (wchar_t id = L'a'; id < L'i'; ++id) {
    threads.emplace_back([id] {
      for (std::uint32_t i = 0; i < 300; ++i) {
        CORE::log(CORE::kInfo, L"%c%u", id, i);
      }
    });
  }
  threads.clear();
  std::map<wchar_t, std::uint32_t> next;
  const Messages found = messages(L"log");
  EXPECT_EQ(found.size(), 8 * 300U);
  for (const std::wstring& message : found) {
    EXPECT_EQ(message, CORE::format(L"%c%u", message.at(0), next[message.at(0)]++));
  }
}

TEST_F(LoggerTest, FailuresStandInTheOtherFile) {
  logger_.start(L"test", corelogger::Writer::kCaller);
  CORE::log(CORE::kDebug, L"debug");  // whose file is open from here on, and the first to be written
  for (const auto& [failing, message] : {std::pair("CreateFileW", L"half"), std::pair("none", L"both"),
                                         std::pair("WriteFile", L"b1"), std::pair("WriteFile", L"b2")}) {
    windows_.faults.failNth(failing, 1, 5);
    CORE::log(CORE::kInfo, L"%s", message);
  }
  const std::wstring open = L"Open file error, errno=0x0000000000000005\n\nfile = " + kFolder +
                            L"log-2026-11-13-041348.txt\n\nMessage = Message 5.";
  const std::wstring write = L"System error occurred while attempting to log a message\n\nError = Message 5.";
  EXPECT_EQ(messages(L"debug"), (Messages{L"debug", L"half", open, L"both"}));
  EXPECT_EQ(messages(L"log"), (Messages{L"both", write, L"b1", L"b2"}));
}

TEST_F(LoggerTest, ANewFileForANewDayAndAFullOne) {
  set(L"logEnabled", L"false");
  set(L"MaxDebugLogSizeMB", L"1");
  process({L"a", L"b", L"c"}, [&] { windows_.clock.advance(10 * kHour); });  // 04:13, 14:13, 00:13 of the next day
  process(Messages(300, std::wstring(8192, L'x')), [&] { windows_.clock.advance(1000); });  // 10:13, 127 or so a file
  windows_.clock.biasMinutes = -14 * 60;  // local time is already the next day
  process({L"d"});
  EXPECT_EQ(files(), Messages({L"2026-11-13-041348", L"2026-11-14-001348", L"2026-11-14-101554", L"2026-11-14-101801",
                               L"2026-11-15-001848"}));
  for (const std::wstring& path : windows_.files.list(kFolder)) {
    EXPECT_LE(windows_.files.read(path).size(), 1u << 20);
  }
  EXPECT_EQ(messages().size(), 304U) << "nothing is lost on the way";
}

TEST_F(LoggerTest, OldFilesGo) {
  set(L"logEnabled", L"false");
  const std::wstring inUse = L"2001-01-01-000000", notOwn = L"2001-01-01-00000x";
  const std::tuple<std::wstring, std::wstring, std::size_t> rows[] = {
      {L"4", L"99", 4}, {L"99", L"5", 6}, {L"0", L"nothing", 8}};  // 0 and no number: defaults
  for (const auto& [maxFiles, maxDays, kept] : rows) {
    SCOPED_TRACE(CORE::toUtf8Lossy(L"files: " + maxFiles + L", days: " + maxDays));
    set(L"MaxDebugLogs", maxFiles);
    set(L"MaxDaysKept", maxDays);
    windows_.files.erase(kFolder);
    for (const std::wstring& time : {inUse, notOwn, std::wstring(L"2001-01-02-000000")}) {
      windows_.files.write(kFolder + L"debug-" + time + L".txt", "old");
    }
    const auto reader = windows_.files.CreateFileW(kFolder + L"debug-" + inUse + L".txt", platform::kGenericRead,
                                                   platform::kFileShareAll, platform::kOpenExisting, 0);
    process(Messages(30, L"a day"), [&] { windows_.clock.advance(24 * kHour); });
    const Messages left = files();
    EXPECT_TRUE(left.size() == kept + 2 && left[0] == inUse && left[1] == notOwn) << testing::PrintToString(left);
  }
}

TEST_F(LoggerTest, SilentWhileTheDiskIsNearlyFull) {
  const std::wstring notice =
      L"Disk space free threshold for log reached.  No more messages will be logged until more disk space has become "
      L"available or the threshold is reduced.";
  auto& free = windows_.files.freeBytes;
  free = 200 << 20;
  process({L"enough", L"looks again", L"lost", L"back"}, [&, next = std::vector{100U, 200U, 198U, 199U}]() mutable {
    windows_.clock.advance(5000);
    free = next.back() << 20;
    next.pop_back();
  });
  process({L"lost"});
  process({L"lost"});  // the notice is there once, whatever the number of processes
  process({L"lost", L"lost", L"soon"}, [&] {
    set(L"DiskThresholdForLogAndEventsMB", L"100");
    windows_.clock.advance(4999);  // the free space is read every five seconds
  });
  windows_.files.diskFull = true;
  process({L"lost", L"whole"}, [&] { windows_.files.diskFull = false; });
  EXPECT_EQ(messages(), Messages({L"enough", notice, L"back", notice, L"soon", L"whole"}));
}

TEST_F(LoggerTest, IdleFilesDelayedLinesAndOthersLocks) {
  set(L"LogDelayNotificationTreshold", L"100");
  set(L"InactivityTimeoutSeconds", L"7");
  CORE::LogSession session(CORE::LogSettings::read(), L"test");
  session.close();
  const auto write = [&](const wchar_t* message, std::uint32_t delay) {
    session.submit(CORE::makeLogRecord(CORE::kInfo, {}, message));
    windows_.clock.advance(delay);
    session.run();
  };
  write(L"just in time", 100);
  for (const auto& [wait, open] : {std::pair(6999U, "2 file"), std::pair(1U, "")}) {
    windows_.clock.advance(wait);
    session.closeIdleFiles();
    EXPECT_EQ(windows_.openHandlesText(), open) << "after " << wait << " ms more";
  }
  const auto other = windows_.files.CreateFileW(windows_.files.list(kFolder).at(0),
                                                platform::kFileAppendData | platform::kFileReadData,
                                                platform::kFileShareAll, platform::kOpenExisting, 0);
  EXPECT_TRUE(windows_.files.LockFileEx(other.value.get(), 0x4000000000000000));
  write(L"slow", 101);
  session.closeFiles();
  const auto all = messages();
  ASSERT_TRUE(all.size() == 2 && all[0] == L"just in time" && files().size() == 2);
  EXPECT_TRUE(all[1].starts_with(L"slow\r\n(LogDelayTicks=101, LogLockWaitTicks=20")) << CORE::toUtf8Lossy(all[1]);
}

TEST_F(LoggerTest, ConsoleAndFolders) {
  windows_.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\sysMessageToConsole", L"true");
  process({L"a"});
  windows_.system.hasConsole = true;
  windows_.faults.failNth("WaitForSingleObject", 2, 6);
  process({L"b", L"c"});
  EXPECT_TRUE(windows_.system.consoleText().ends_with(L"] b\r\n"));
  EXPECT_EQ(messages(), Messages({L"ERROR INITIATING SYSMESSAGE, error=Message 6.", L"a", L"b", L"c",
                                  L"ERROR IN SYSMESSAGE WaitForSingleObject, error=Message 6."}));
  set(L"LogFileDirectory", L"");
  set(L"userModeLogPrograms", L"other.exe, MDDCT.EXE");
  process({L"d"});
  EXPECT_TRUE(
      windows_.files.exists(L"C:\\Windows\\System32\\config\\systemprofile\\AppData\\Local\\Calvera\\Meridon\\logs"));
}

}  // namespace
