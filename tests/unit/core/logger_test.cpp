#include "core/logger.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

#include "core/convert.h"
#include "core/log_context.h"
#include "core/log_folder.h"
#include "core/log_queue.h"
#include "core/log_session.h"
#include "core/text.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

using CORE::corelogger;

const std::wstring kFolder = L"C:\\Deep\\er\\logs";
const std::wstring kKey = L"HKLM\\Software\\Calvera\\Meridon\\Log\\";

class LoggerTest : public testing::Test {
 protected:
  void SetUp() override { set(L"LogFileDirectory", kFolder); }
  void TearDown() override {
    corelogger::instance().stop();
    CORE::setLogContext(L"worker");
    EXPECT_EQ(windows_.openHandlesText(), "");
    EXPECT_TRUE(windows_.misuse().empty());
  }

  void set(const std::wstring& key, const std::wstring& value) { windows_.registry.set(kKey + key, value); }
  void start(corelogger::Writer writer = corelogger::Writer::kThread) { corelogger::instance().start(L"test", writer); }

  std::wstring path(const std::wstring& base) const { return kFolder + L"\\" + base + L"-2026-11-13-041348.txt"; }
  std::vector<sim::LogLine> lines(const std::wstring& base) {
    corelogger::instance().flush();
    return sim::parseLog(CORE::to_wstr(windows_.files.read(path(base)), CORE::kUtf8));
  }
  std::vector<std::wstring> messages(const std::wstring& base) {
    std::vector<std::wstring> out;
    for (const sim::LogLine& line : lines(base)) {
      out.push_back(line.message);
    }
    return out;
  }

  sim::Windows windows_;
};

using Messages = std::vector<std::wstring>;

TEST_F(LoggerTest, AdmissionAndFiles) {
  struct Row {
    const char* name;
    bool log, debug, trace, event;
    const char* admitted;  ///< levels 0 to 5
    std::size_t inLog, inDebug;
  };
  const Row rows[] = {
      {"defaults", true, true, false, true, "-DIWEF", 4, 5},
      {"trace", false, false, true, false, "TDIWEF", 0, 6},
      {"all", true, true, true, true, "TDIWEF", 4, 6},
      {"debug alone", false, true, false, false, "-DIWEF", 0, 5},
      {"log alone", true, false, false, false, "--IWEF", 4, 0},
      {"event alone", false, false, false, true, "--IWEF", 0, 0},
      {"nothing", false, false, false, false, "------", 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    windows_.files.erase(L"C:\\Deep");
    set(L"logEnabled", row.log ? L"true" : L"false");
    set(L"debugEnabled", row.debug ? L"true" : L"false");
    set(L"traceEnabled", row.trace ? L"true" : L"false");
    set(L"eventEnabled", row.event ? L"true" : L"false");
    start();
    for (std::uint32_t level = 0; level < 6; ++level) {
      EXPECT_EQ(CORE::logAdmits(level), row.admitted[level] != '-') << level;
      CORE::log(static_cast<CORE::LogLevel>(level), L"level %u", level);
    }
    EXPECT_EQ(lines(L"log").size(), row.inLog);
    EXPECT_EQ(lines(L"debug").size(), row.inDebug);
    EXPECT_EQ(windows_.files.exists(path(L"log")), row.inLog != 0);
    EXPECT_EQ(windows_.files.exists(path(L"debug")), row.inDebug != 0);
  }
}

TEST_F(LoggerTest, WritesTheWholeLine) {
  set(L"FileNameBase", L"info");
  start();
  CORE::setLogContext(L"main");
  CORE::log(CORE::kInfo, L"wWinMain(): %s %d \u00E4", L"text", 5);
  corelogger::instance().flush();
  const std::string thread = CORE::toUtf8Lossy(CORE::format(L"%04X", windows_.processes.GetCurrentThreadId()));
  EXPECT_EQ(windows_.files.read(path(L"info")),
            "2026-11-13T04:13:48.123Z INFO  (1092-" + thread + ") <main> [test] wWinMain(): text 5 \xC3\xA4\r\n");
  EXPECT_EQ(windows_.files.read(path(L"info")), windows_.files.read(path(L"debug")));
}

TEST_F(LoggerTest, NothingBeforeStartAndAfterStop) {
  EXPECT_FALSE(CORE::logAdmits(CORE::kFatal));
  CORE::log(CORE::kFatal, L"before");
  start();
  CORE::log(CORE::kError, L"first");
  corelogger::instance().stop();
  EXPECT_FALSE(CORE::logAdmits(CORE::kFatal));
  CORE::logArguments(CORE::kFatal, L"between", {});
  EXPECT_EQ(messages(L"log"), Messages{L"first"});
  corelogger::instance().stop();
  start();
  CORE::log(CORE::kError, L"second");
  EXPECT_EQ(messages(L"log"), (Messages{L"first", L"second"}));
}

TEST_F(LoggerTest, MessagesAreCutAndContextsToo) {
  start();
  CORE::setLogContext(std::wstring(70, L'c'));
  CORE::log(CORE::kInfo, L"%s", std::wstring(9000, L'x'));
  EXPECT_EQ(messages(L"log"), Messages{std::wstring(8192, L'x')});
  EXPECT_NE(windows_.files.read(path(L"log")).find(" <" + std::string(63, 'c') + "> "), std::string::npos);
}

TEST_F(LoggerTest, FilterSeesRecordsFromInfoUpwards) {
  start();
  corelogger::instance().setMessageFilter([](std::uint32_t level, std::wstring& message) {
    if (level == CORE::kFatal) {
      throw std::runtime_error("filter");
    }
    message = L"filtered " + message;
    message.resize(message == L"filtered long" ? 9000 : message.size(), L'x');
  });
  CORE::log(CORE::kDebug, L"a");
  CORE::log(CORE::kInfo, L"b");
  CORE::log(CORE::kFatal, L"c");
  CORE::log(CORE::kInfo, L"long");
  corelogger::instance().setMessageFilter(nullptr);
  CORE::log(CORE::kInfo, L"d");
  Messages found = messages(L"debug");
  ASSERT_EQ(found.size(), 5U);
  EXPECT_EQ(found[3].size(), 8192U);
  found.erase(found.begin() + 3);
  EXPECT_EQ(found, (Messages{L"a", L"filtered b",
                             L"filtered System exception occurred while attempting to log a message", L"d"}));
}

TEST_F(LoggerTest, LabelsAndUnknownLevels) {
  start();
  corelogger::instance().write(CORE::kInfo, L"AUDIT", L"labelled", {});
  corelogger::instance().write(77, {}, L"unknown", {});
  corelogger::instance().flush();
  const std::string text = windows_.files.read(path(L"log"));
  EXPECT_NE(text.find("Z AUDIT ("), std::string::npos);
  EXPECT_NE(text.find("Z UNKNOWN ("), std::string::npos);
}

TEST_F(LoggerTest, OverflowDropsAndTellsOnce) {
  set(L"msgQueueSizeThreshold", L"3");
  set(L"batchLogMessageCount", L"2");
  CORE::LogSession session(CORE::LogSettings::read(), L"test");
  const auto submit = [&](std::wstring message) {
    session.submit(CORE::makeLogRecord(CORE::kInfo, {}, std::move(message)));
  };
  const auto overflow = [&] {
    for (int i = 0; i < 6; ++i) {
      submit(CORE::format(L"%d", i));
    }
    session.close();
    session.run();
  };
  overflow();
  submit(L"later");
  session.run();
  overflow();                                              // the writer had caught up: told again
  EXPECT_EQ(windows_.faults.callCount("WriteFile"), 10U);  // batches of 2 2, 1, 2 2 records, for each of two files
  const std::wstring notice = L"Log message threshold 3 reached dropping log messages for exe mdDCT.exe with PID 4242.";
  EXPECT_EQ(messages(L"log"), (Messages{L"0", L"1", L"2", notice, L"later", L"0", L"1", L"2", notice}));
  EXPECT_EQ(lines(L"log").at(3).level, CORE::kWarn);
  session.closeFiles();
}

TEST_F(LoggerTest, QueueWaitsAsLongAsThereIsProgress) {
  using std::chrono::milliseconds;
  CORE::LogQueue queue(10);
  EXPECT_TRUE(queue.waitUntilWritten(milliseconds(0)));
  for (int i = 0; i < 4; ++i) {
    queue.push({});
  }
  EXPECT_FALSE(queue.waitUntilWritten(milliseconds(5)));
  std::thread writer([&queue] {
    for (int i = 0; i < 4; ++i) {
      std::this_thread::sleep_for(milliseconds(20));
      queue.markWritten(queue.take(1).size());
    }
  });
  EXPECT_TRUE(queue.waitUntilWritten(milliseconds(10'000)));
  writer.join();
  EXPECT_TRUE(queue.take(5).empty());
}

TEST_F(LoggerTest, ManyThreadsEachLineWholeAndInOrder) {
  constexpr std::uint32_t kThreads = 8;
  constexpr std::uint32_t kLines = 300;
  for (const auto writer : {corelogger::Writer::kThread, corelogger::Writer::kCaller}) {
    windows_.files.erase(L"C:\\Deep");
    start(writer);
    std::vector<std::thread> threads;
    for (std::uint32_t id = 0; id < kThreads; ++id) {
      threads.emplace_back([id] {
        CORE::setLogContext(CORE::format(L"thread %u", id));
        for (std::uint32_t i = 0; i < kLines; ++i) {
          CORE::log(CORE::kInfo, L"%u %u %s", id, i, std::wstring(i % 50, L'x'));
        }
      });
    }
    for (auto& thread : threads) {
      thread.join();
    }
    std::map<std::wstring, std::uint32_t> next;
    const Messages found = messages(L"log");
    EXPECT_EQ(found.size(), kThreads * kLines);
    for (const std::wstring& message : found) {
      const auto parts = CORE::splitText(message, L' ');
      ASSERT_EQ(parts.size(), 3U);
      const std::uint32_t i = next[parts[0]]++;
      EXPECT_EQ(parts[1] + L" " + parts[2], CORE::format(L"%u %s", i, std::wstring(i % 50, L'x')));
    }
    corelogger::instance().stop();
  }
}

TEST_F(LoggerTest, FlushLeavesNothingBehind) {
  set(L"batchLogMessageCount", L"3");
  start();
  for (std::uint32_t i = 1; i <= 50; ++i) {
    CORE::log(CORE::kDebug, L"%u", i);
    corelogger::instance().flush();
    EXPECT_EQ(sim::parseLog(CORE::toWideLossy(windows_.files.read(path(L"debug")))).size(), i);
  }
}

TEST_F(LoggerTest, FileThatCannotBeOpenedIsTriedAgain) {
  start(corelogger::Writer::kCaller);
  windows_.faults.failAll("CreateFileW", platform::kErrorAccessDenied);
  CORE::log(CORE::kDebug, L"lost");
  CORE::log(CORE::kInfo, L"lost as well");
  windows_.faults.clear();
  CORE::log(CORE::kDebug, L"debug");
  windows_.faults.failNth("CreateFileW", 1, 5);  // the info file
  CORE::log(CORE::kInfo, L"half");
  CORE::log(CORE::kInfo, L"both");
  EXPECT_EQ(messages(L"log"), Messages{L"both"});
  EXPECT_EQ(messages(L"debug"), (Messages{L"debug", L"half",
                                          L"Open file error, errno=0x0000000000000005\n\nfile = " + path(L"log") +
                                              L"\n\nMessage = Message 5.",
                                          L"both"}));
}

TEST_F(LoggerTest, FailedWriteIsToldOnceInTheOtherFile) {
  start(corelogger::Writer::kCaller);
  CORE::log(CORE::kInfo, L"a");
  for (const int round : {1, 2}) {
    windows_.faults.failNth("WriteFile", 1, 5);  // the debug file is written first
    CORE::log(CORE::kInfo, L"b%d", round);
  }
  CORE::log(CORE::kInfo, L"c");
  const std::wstring told = L"System error occurred while attempting to log a message\n\nError = Message 5.";
  EXPECT_EQ(messages(L"log"), (Messages{L"a", told, L"b1", L"b2", L"c"}));
  EXPECT_EQ(messages(L"debug"), (Messages{L"a", L"c"}));
}

TEST_F(LoggerTest, FoldersWhenNoneIsConfigured) {
  windows_.text.setVariable(L"ProgramData", L"D:\\Data");
  EXPECT_EQ(CORE::defaultLogFolder(), L"D:\\Data\\Calvera\\Meridon\\logs");
  windows_.registry.eraseValue(kKey + L"LogFileDirectory");
  start();
  CORE::log(CORE::kInfo, L"a");
  corelogger::instance().stop();
  EXPECT_TRUE(windows_.files.exists(L"D:\\Data\\Calvera\\Meridon\\logs\\log-2026-11-13-041348.txt"));

  windows_.text.eraseVariable(L"ProgramData");
  EXPECT_EQ(CORE::defaultLogFolder(), L"C:\\Program Files\\Meridon\\logs");
  windows_.faults.failAll("ExpandEnvironmentStringsW", platform::kErrorNotEnoughMemory);
  EXPECT_EQ(CORE::defaultLogFolder(), L"C:\\Program Files\\Meridon\\logs");
  windows_.faults.failAll("GetModuleFileNameW", platform::kErrorNotEnoughMemory);
  EXPECT_EQ(CORE::defaultLogFolder(), L"");
}

TEST_F(LoggerTest, UnusableNumbersGiveTheDefaults) {
  for (const wchar_t* value : {L"", L"0", L"many"}) {
    set(L"batchLogMessageCount", value);
    set(L"LogDelayNotificationTreshold", value);
    const auto settings = CORE::LogSettings::read();
    EXPECT_EQ(settings.number(L"batchLogMessageCount"), 10U);
    EXPECT_EQ(settings.number(L"LogDelayNotificationTreshold"), 0U);
  }
  EXPECT_EQ(CORE::LogSettings().number(L"msgQueueSizeThreshold"), 150'000U);
  EXPECT_THROW(CORE::LogSettings().text(L"LogDelayNotificationThreshold"), CORE::coreException);
}

TEST(LogCapture, GivesRecordsBack) {
  sim::Windows windows;
  {
    sim::LogCapture capture(windows);
    EXPECT_TRUE(capture.lines().empty());
    CORE::log(CORE::kTrace, L"one");
    CORE::log(CORE::kError, L"two\r\n   lines\r\n");
    const std::vector<sim::LogLine> expected = {{CORE::kTrace, L"one"}, {CORE::kError, L"two\r\n   lines\r\n"}};
    EXPECT_EQ(capture.lines(), expected);
    EXPECT_TRUE(capture.has(CORE::kError, L"   lines"));
    EXPECT_FALSE(capture.has(CORE::kWarn, L"two"));
    EXPECT_EQ(capture.count(L"o"), 2U);
    capture.clear();
    EXPECT_EQ(capture.text(), "");
  }
  EXPECT_EQ(windows.openHandlesText(), "");
}

}  // namespace
