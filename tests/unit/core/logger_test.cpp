#include "core/logger.h"

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "core/convert.h"
#include "core/log_context.h"
#include "core/log_line.h"
#include "core/log_queue.h"
#include "core/log_session.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

using CORE::corelogger;
using Messages = std::vector<std::wstring>;

const std::wstring kFolder = L"C:\\Deep\\er\\logs";

class LoggerTest : public testing::Test {
 protected:
  void SetUp() override { set(L"LogFileDirectory", kFolder); }
  void TearDown() override {
    logger_.stop();
    CORE::setLogContext(L"worker");
    EXPECT_EQ(windows_.openHandlesText(), "");
    EXPECT_TRUE(windows_.misuse().empty());
  }

  void set(const std::wstring& key, const std::wstring& value) {
    windows_.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\Log\\" + key, value);
  }
  void start(corelogger::Writer writer = corelogger::Writer::kThread) { logger_.start(L"test", writer); }

  std::wstring path(const std::wstring& base) const { return kFolder + L"\\" + base + L"-2026-11-13-041348.txt"; }
  /// A file without what the logger tells of itself at its beginning.
  std::string written(const std::wstring& base) {
    logger_.flush();
    std::istringstream file(windows_.files.read(path(base)));
    std::string out;
    for (std::string line; std::getline(file, line);) {
      const auto is = [&](const char* own) { return line.find(own) != line.npos; };
      const bool own = is(" Log for ") || is(" Opening latest ") || is(" Program '") || is(" ****");
      out += own ? "" : line + "\n";
    }
    return out;
  }
  Messages messages(const std::wstring& base) {
    Messages out;
    for (const sim::LogLine& line : sim::parseLog(CORE::to_wstr(written(base), CORE::kUtf8))) {
      out.push_back(line.message);
    }
    return out;
  }

  sim::Windows windows_;
  corelogger& logger_ = corelogger::instance();
};

TEST_F(LoggerTest, AdmissionAndFiles) {
  struct Row {
    std::wstring on, admitted;  ///< settings; levels 0 to 5
    std::size_t inLog, inDebug;
  };
  const Row rows[] = {{L"log debug trace event", L"TDIWEF", 4, 6},
                      {L"log", L"--IWEF", 4, 0},
                      {L"debug", L"-DIWEF", 0, 5},
                      {L"trace", L"TDIWEF", 0, 6},
                      {L"event", L"--IWEF", 0, 0},
                      {L"", L"------", 0, 0}};
  for (const Row& row : rows) {
    SCOPED_TRACE(CORE::toUtf8Lossy(row.on));
    windows_.files.erase(L"C:\\Deep");
    for (const std::wstring name : {L"log", L"debug", L"trace", L"event"}) {
      set(name + L"Enabled", row.on.find(name) != row.on.npos ? L"true" : L"false");
    }
    start();
    for (std::uint32_t level = 0; level < 6; ++level) {
      EXPECT_EQ(CORE::logAdmits(level), row.admitted[level] != L'-') << level;
      CORE::log(static_cast<CORE::LogLevel>(level), L"level %u", level);
    }
    EXPECT_EQ(messages(L"log").size(), row.inLog);
    EXPECT_EQ(messages(L"debug").size(), row.inDebug);
    EXPECT_EQ(windows_.files.exists(path(L"log")), row.inLog != 0);
    EXPECT_EQ(windows_.files.exists(path(L"debug")), row.inDebug != 0);
  }
}

TEST_F(LoggerTest, DefaultsFromStartToStop) {
  set(L"batchLogMessageCount", L"many");  // no number: the default
  CORE::log(CORE::kFatal, L"before");
  start();
  CORE::setLogContext(std::wstring(70, L'c'));
  EXPECT_FALSE(CORE::logAdmits(CORE::kTrace));
  CORE::log(CORE::kInfo, L"wWinMain(): %s %d \u00E4", L"text", 5);
  logger_.write(77, L"AUDIT", std::wstring(9000, L'x'), {});
  logger_.stop();
  EXPECT_FALSE(CORE::logAdmits(CORE::kFatal));
  CORE::logArguments(CORE::kFatal, L"between", {});
  logger_.stop();
  start();
  CORE::log(CORE::kDebug, L"again");
  const std::string ids = CORE::toUtf8Lossy(CORE::format(L"(1092-%04X) <", windows_.processes.GetCurrentThreadId()));
  const std::string rest = ids + std::string(63, 'c') + "> [test] ";
  const std::string lines = "2026-11-13T04:13:48.123Z INFO  " + rest + "wWinMain(): text 5 \xC3\xA4\r\n" +
                            "2026-11-13T04:13:48.123Z AUDIT " + rest + std::string(8192, 'x') + "\r\n";
  EXPECT_EQ(written(L"log"), lines);
  EXPECT_EQ(written(L"debug"), lines + "2026-11-13T04:13:48.123Z DEBUG " + rest + "again\r\n");
}

TEST_F(LoggerTest, FilterSeesRecordsFromInfoUpwards) {
  start();
  logger_.setMessageFilter([](std::uint32_t level, std::wstring& message) {
    if (level == CORE::kFatal) {
      throw std::runtime_error("filter");
    }
    message.insert(0, level == CORE::kWarn ? 9000 : 1, L'+');
  });
  for (const auto level : {CORE::kDebug, CORE::kInfo, CORE::kWarn, CORE::kFatal}) {
    CORE::log(level, L"a");
  }
  logger_.setMessageFilter(nullptr);
  CORE::log(CORE::kInfo, L"b");
  EXPECT_EQ(messages(L"debug"), (Messages{L"a", L"+a", std::wstring(8192, L'+'),
                                          L"+System exception occurred while attempting to log a message", L"b"}));
}

TEST_F(LoggerTest, OverflowDropsAndTellsOnce) {
  set(L"msgQueueSizeThreshold", L"3");
  set(L"batchLogMessageCount", L"2");
  CORE::LogSession session(CORE::LogSettings::read(), L"test");
  for (const int count : {6, 1, 6}) {  // each time the writer has caught up: told again
    for (int i = 0; i < count; ++i) {
      session.submit(CORE::makeLogRecord(CORE::kInfo, {}, CORE::format(L"%d", i)));
    }
    session.close();
    session.run();
  }
  EXPECT_EQ(windows_.faults.callCount("WriteFile"), 10U);  // batches of 2 2, 1, 2 2 records, for each of two files
  const std::wstring notice = L"Log message threshold 3 reached dropping log messages for exe mdDCT.exe with PID 4242.";
  EXPECT_EQ(messages(L"log"), (Messages{L"0", L"1", L"2", notice, L"0", L"0", L"1", L"2", notice}));
  EXPECT_NE(written(L"log").find(" WARN "), std::string::npos);
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
    while (!queue.take(1).empty()) {
      std::this_thread::sleep_for(milliseconds(300));
      queue.markWritten(1);
    }
  });
  EXPECT_TRUE(queue.waitUntilWritten(milliseconds(1'000)));  // longer than that in all
  writer.join();
}

TEST_F(LoggerTest, ManyThreadsEachLineWholeAndInOrder) {
  constexpr std::uint32_t kThreads = 8;
  constexpr std::uint32_t kLines = 300;
  const auto message = [](auto id, std::uint32_t i) {
    return CORE::format(L"%u %u %s", id, i, std::wstring(i % 50, L'x'));
  };
  for (const auto writer : {corelogger::Writer::kThread, corelogger::Writer::kCaller}) {
    windows_.files.erase(L"C:\\Deep");
    start(writer);
    std::vector<std::thread> threads;
    for (std::uint32_t id = 0; id < kThreads; ++id) {
      threads.emplace_back([&message, id] {
        for (std::uint32_t i = 0; i < kLines; ++i) {
          CORE::log(CORE::kInfo, L"%s", message(id, i));
        }
      });
    }
    for (auto& thread : threads) {
      thread.join();
    }
    std::map<wchar_t, std::uint32_t> next;
    const Messages found = messages(L"log");
    EXPECT_EQ(found.size(), kThreads * kLines);
    for (const std::wstring& line : found) {
      EXPECT_EQ(line, message(line[0] - L'0', next[line[0]]++));
    }
    logger_.stop();
  }
}

TEST_F(LoggerTest, FailuresAreToldInTheOtherFile) {
  start(corelogger::Writer::kCaller);
  windows_.faults.failAll("CreateFileW", platform::kErrorAccessDenied);
  CORE::log(CORE::kInfo, L"lost");
  windows_.faults.clear();
  CORE::log(CORE::kDebug, L"debug");
  windows_.faults.failNth("CreateFileW", 1, 5);  // the info file
  CORE::log(CORE::kInfo, L"half");
  CORE::log(CORE::kInfo, L"both");
  for (const int round : {1, 2}) {
    windows_.faults.failNth("WriteFile", 1, 5);  // the debug file is written first
    CORE::log(CORE::kInfo, L"b%d", round);
  }
  CORE::log(CORE::kInfo, L"c");
  const std::wstring open =
      L"Open file error, errno=0x0000000000000005\n\nfile = " + path(L"log") + L"\n\nMessage = Message 5.";
  const std::wstring write = L"System error occurred while attempting to log a message\n\nError = Message 5.";
  EXPECT_EQ(messages(L"debug"), (Messages{L"debug", L"half", open, L"both", L"c"}));
  EXPECT_EQ(messages(L"log"), (Messages{L"both", write, L"b1", L"b2", L"c"}));
}

TEST_F(LoggerTest, TimeStamps) {
  windows_.clock.set({2026, 3, 0, 1, 0, 5, 9, 7});
  const platform::FileTime then = windows_.clock.GetSystemTimeAsFileTime();
  const std::tuple<std::int32_t, int, std::wstring> rows[] = {
      {0, 0, L"2026-03-01T00:05:09.007Z"},         {0, 300, L"2026-02-28T19:05:09.007-05:00"},
      {0, -345, L"2026-03-01T05:50:09.007+05:45"}, {-60, 300, L"2026-03-01T01:05:09.007+01:00"},
      {210, 0, L"2026-02-28T20:35:09.007-03:30"},  {300, 0, L"2026-02-28T19:05:09.007-05:00"},
      {-1, 0, L"2026-03-01T00:06:09.007+00:01"},   {CORE::kUnknownBias, -60, L"2026-03-01T00:05:09.007Z"},
  };
  for (const auto& [bias, platformBias, stamp] : rows) {
    windows_.clock.biasMinutes = platformBias;
    EXPECT_EQ(CORE::timeStamp(then, bias), stamp) << bias;
  }
  windows_.faults.failAll("FileTimeToLocalFileTime", platform::kErrorInvalidParameter);
  windows_.clock.advance(1000);
  EXPECT_EQ(CORE::timeStamp(then, 0), L"2026-03-01T00:05:09.007Z");
  EXPECT_EQ(CORE::timeStamp(then, CORE::kUnknownBias), L"2026-03-01T00:05:10.007Z");  // shows the present
}

TEST_F(LoggerTest, LinesByTheirLayout) {
  const CORE::LineLayout plain{0x1092, L"1092", L"mdDCT", false, true, 0};
  const CORE::LineLayout cut{0x51092, L"1092", L"mdDCT", true, true, 0};
  const CORE::LineLayout open{0x1092, L"1092", L"mdDCT", false, false, 0};
  const std::tuple<CORE::LogRecord, CORE::LineLayout, std::wstring> rows[] = {
      {{0, L"", L"m(): a", L"main", 0, 0, 0x2C}, plain, L"TRACE (1092-002C) <main> [mdDCT] m(): a"},
      {{1, L"", L"a", L"main", 0, 0, 0xFFFF}, plain, L"DEBUG (1092-FFFF) <main> [mdDCT] a"},
      {{2, L"", L"", L"main", 0, 0, 0x10000}, plain, L"INFO  (1092-10000) <main> [mdDCT] "},
      {{3, L"", L"a", L"main", 0, 0, 0x12345}, cut, L"WARN  (1092-2345) <main> [mdDCT] a"},
      {{4, L"", L"a\r\nb", L"main", 0, 0, 1}, cut, L"ERROR (1092-0001) <main> [mdDCT] a\r\nb"},
      {{5, L"", L"VtX vtx", L"main", 0, 0, 1}, open, L"FATAL (1092-0001) <main> [mdDCT] VtX vtx"},
      {{6, L"", L"VtX vvtxtx vtx", L"main", 0, 0, 1}, plain, L"UNKNOWN (1092-0001) <main> [mdDCT] *** v***tx ***"},
      {{4, L"vtx", L"m", L"vTx", 0, 0, 1}, {1, L"VTX", L"Xvtxx", false, true, 0}, L"*** (***-0001) <***> [X***x] m"},
  };
  for (const auto& [record, layout, rest] : rows) {
    EXPECT_EQ(CORE::toUtf8Lossy(CORE::logLine(record, layout)),
              CORE::toUtf8Lossy(L"1601-01-01T00:00:00.000Z " + rest + L"\r\n"));
  }
}

TEST_F(LoggerTest, BiasOfTheRegistry) {
  const std::wstring path = L"HKLM\\SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation\\ActiveTimeBias";
  EXPECT_EQ(CORE::currentBias(true), CORE::kUnknownBias);
  windows_.registry.set(path, L"60");  // not a number
  EXPECT_EQ(CORE::currentBias(true), CORE::kUnknownBias);
  const std::pair<std::uint32_t, std::int32_t> rows[] = {
      {0xFFFFFFC4, -60}, {300, 300}, {0, 0}, {0x80000000, CORE::kUnknownBias}, {100'000, CORE::kUnknownBias}};
  for (const auto& [value, bias] : rows) {
    windows_.registry.set(path, value);
    EXPECT_EQ(CORE::currentBias(true), bias);
    EXPECT_EQ(CORE::currentBias(false), 0);
  }
}

}  // namespace
