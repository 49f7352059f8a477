#include <gtest/gtest.h>

#include <array>

#include "core/convert.h"
#include "core/log_session.h"
#include "core/log_settings.h"
#include "platform/files.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

// Which files the log is in over the days, and when it is silent.

namespace {

using Messages = std::vector<std::wstring>;

const std::wstring kFolder = L"C:\\Logs";
constexpr std::uint64_t kHour = 3600 * 1000;

class LogFilesTest : public testing::Test {
 protected:
  LogFilesTest() {
    set(L"LogFileDirectory", kFolder);
    set(L"logEnabled", L"false");
  }
  ~LogFilesTest() override {
    EXPECT_EQ(windows_.openHandlesText(), "");
    EXPECT_EQ(windows_.misuse(), std::vector<std::string>());
  }

  void set(const std::wstring& key, const std::wstring& value) { windows_.registry.set(kKey + key, value); }
  /// One process that logs these messages, each after the time that `between` lets pass.
  template <class Between>
  void process(const Messages& messages, Between between) {
    CORE::LogSession session(CORE::LogSettings::read(), L"test");
    session.setCallerWrites();
    for (const std::wstring& message : messages) {
      session.submit(CORE::makeLogRecord(CORE::kInfo, {}, message));
      between();
    }
    session.closeFiles();
  }
  void process(const Messages& messages) {
    process(messages, [] {});
  }
  /// Names of the files, without "debug-" and ".txt".
  Messages files() const {
    Messages out;
    for (const std::wstring& path : windows_.files.list(kFolder)) {
      const auto begin = path.find(L"debug-");
      out.push_back(begin == path.npos ? path : path.substr(begin + 6, path.size() - begin - 10));
    }
    return out;
  }
  /// All messages of all files, oldest file first.
  Messages messages() const {
    Messages out;
    for (const std::wstring& path : windows_.files.list(kFolder)) {
      for (const auto& line : sim::parseLog(CORE::toWideLossy(windows_.files.read(path)))) {
        out.push_back(line.message);
      }
    }
    return out;
  }
  /// The same without the logger's own headers.
  Messages ownMessages() const {
    Messages out = messages();
    std::erase_if(out, [](const std::wstring& message) {
      return message.starts_with(L"Log for ") || message.starts_with(L"Opening latest") ||
             message.starts_with(L"Program '");
    });
    return out;
  }

  const std::wstring kKey = L"HKLM\\Software\\Calvera\\Meridon\\Log\\";
  sim::Windows windows_;
};

TEST_F(LogFilesTest, EachProcessTellsOfItself) {
  process({L"a"});
  set(L"logEnabled", L"true");
  set(L"debugEnabled", L"false");
  process({L"b"});
  set(L"debugEnabled", L"true");
  process({L"c"});
#ifdef NDEBUG
  const std::wstring type = L"release";
#else
  const std::wstring type = L"debug";
#endif
  const std::wstring started = L"Program 'mdDCT.exe' started, version=1.2.3.4, pid=0x1092, buildtype=" + type +
                               L", usethread=0, closeafterwrite=0, sessionId=0\r\n ********** Debug log file is ";
  const std::wstring enabled = started + L"enabled for mdDCT.exe. **********";
  const std::wstring disabled = started + L"disabled for mdDCT.exe. **********";
  const std::wstring again = L"Opening latest existing log file";
  EXPECT_EQ(messages(), Messages({L"Log for mdDCT.exe", enabled, L"a", again, enabled, L"c",      // debug
                                  L"Log for mdDCT.exe", disabled, L"b", again, enabled, L"c"}));  // log
  EXPECT_EQ(windows_.files.descriptorOf(kFolder), L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
}

TEST_F(LogFilesTest, ANewFileForANewDayAndAFullOne) {
  set(L"MaxDebugLogSizeMB", L"1");
  const std::wstring big(8192, L'x');
  process({L"a", L"b", L"c"}, [&] { windows_.clock.advance(10 * kHour); });  // 04:13, 14:13, 00:13 of the next day
  EXPECT_EQ(files(), Messages({L"2026-11-13-041348", L"2026-11-14-001348"}));
  process(Messages(300, big), [&] { windows_.clock.advance(1000); });  // 10:13, 127 or so a file
  EXPECT_EQ(files(),
            Messages({L"2026-11-13-041348", L"2026-11-14-001348", L"2026-11-14-101554", L"2026-11-14-101801"}));
  for (const std::wstring& path : windows_.files.list(kFolder)) {
    EXPECT_LE(windows_.files.read(path).size(), 1u << 20);
  }
  EXPECT_EQ(ownMessages().size(), 303U) << "nothing is lost on the way";
  windows_.clock.biasMinutes = -14 * 60;  // local time is already the next day
  process({L"d"});
  EXPECT_EQ(files().back(), L"2026-11-15-001848");
}

TEST_F(LogFilesTest, OldFilesGo) {
  struct Row {
    const wchar_t *mostFiles, *mostDays;
    std::size_t kept;
  };
  for (const Row& row :
       {Row{L"4", L"99", 4}, Row{L"99", L"5", 6}, Row{L"0", L"nothing", 8}}) {  // 0 and no number: defaults
    set(L"MaxDebugLogs", row.mostFiles);
    set(L"MaxDaysKept", row.mostDays);
    windows_.files.erase(kFolder);
    windows_.files.write(kFolder + L"\\debug-2001-01-01-000000.txt", "in use");
    windows_.files.write(kFolder + L"\\debug-2001-01-02-000000.txt", "old");
    windows_.files.write(kFolder + L"\\debug-2001-01-01-00000x.txt", "another's");
    auto reader = windows_.files.CreateFileW(kFolder + L"\\debug-2001-01-01-000000.txt", platform::kGenericRead,
                                             platform::kFileShareAll, platform::kOpenExisting, 0);
    process(Messages(30, L"a day"), [&] { windows_.clock.advance(24 * kHour); });
    const auto left = files();
    EXPECT_EQ(left.size(), row.kept + 2) << "and the one in use, and the other's";
    EXPECT_EQ(left[0], L"2001-01-01-000000");
    EXPECT_EQ(left[1], L"2001-01-01-00000x");
  }
}

TEST_F(LogFilesTest, SilentWhileTheDiskIsNearlyFull) {
  const std::wstring notice =
      L"Disk space free threshold for log reached.  No more messages will be logged until more disk space has become "
      L"available or the threshold is reduced.";
  const auto free = [&](std::uint64_t megabytes) { windows_.files.freeBytes = megabytes << 20; };
  free(200);
  process({L"enough", L"looks again", L"lost", L"back"}, [&, n = 0]() mutable {
    windows_.clock.advance(5000);
    free(std::array<std::uint64_t, 4>{199, 198, 200, 100}[static_cast<std::size_t>(n++)]);
  });
  EXPECT_EQ(ownMessages(), Messages({L"enough", notice, L"back"}));
  process({L"lost"});
  process({L"lost"});
  EXPECT_EQ(ownMessages(), Messages({L"enough", notice, L"back", notice})) << "one process tells";
  EXPECT_TRUE(CORE::LogSettings::readFlag(L"loggedThresholdReached"));
  process({L"lost", L"lowered", L"soon"}, [&] {
    set(L"DiskThresholdForLogAndEventsMB", L"100");
    windows_.clock.advance(4999);
  });
  EXPECT_EQ(ownMessages().back(), L"soon") << "looked at every five seconds";
  EXPECT_EQ(ownMessages().size(), 5U);
  EXPECT_FALSE(CORE::LogSettings::readFlag(L"loggedThresholdReached"));
  windows_.files.diskFull = true;
  process({L"lost", L"whole"}, [&] { windows_.files.diskFull = false; });
  EXPECT_EQ(ownMessages().back(), L"whole");
}

TEST_F(LogFilesTest, SlowLinesAndOthersTurns) {
  set(L"LogDelayNotificationTreshold", L"100");
  process({L"quick"});
  const std::wstring path = windows_.files.list(kFolder).at(0);
  auto other = windows_.files.CreateFileW(path, platform::kFileAppendData | platform::kFileReadData,
                                          platform::kFileShareAll, platform::kOpenExisting, 0);
  CORE::LogSession session(CORE::LogSettings::read(), L"test");
  for (const wchar_t* const message : {L"slow", L"just in time"}) {
    session.submit(CORE::makeLogRecord(CORE::kInfo, {}, message));
    windows_.clock.advance(100);
  }
  EXPECT_TRUE(windows_.files.LockFileEx(other.value.get(), 0x4000000000000000));
  session.close();
  session.run();
  session.closeFiles();
  const auto all = ownMessages();
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[1].find(L"slow\r\n(LogDelayTicks=200, LogLockWaitTicks=20"), 0U) << CORE::toUtf8Lossy(all[1]);
  EXPECT_EQ(all[2], L"just in time");
}

TEST_F(LogFilesTest, IdleFilesAreClosed) {
  set(L"InactivityTimeoutSeconds", L"7");
  CORE::LogSession session(CORE::LogSettings::read(), L"test");
  session.setCallerWrites();
  session.submit(CORE::makeLogRecord(CORE::kInfo, {}, L"a"));
  windows_.clock.advance(6999);
  session.closeIdleFiles();
  EXPECT_EQ(windows_.openHandlesText(), "1 file");
  windows_.clock.advance(1);
  session.closeIdleFiles();
  EXPECT_EQ(windows_.openHandlesText(), "");
  session.submit(CORE::makeLogRecord(CORE::kInfo, {}, L"b"));
  session.closeFiles();
  EXPECT_EQ(ownMessages(), Messages({L"a", L"b"}));
  EXPECT_EQ(files().size(), 1U);
}

TEST_F(LogFilesTest, ConsoleAndFolders) {
  windows_.registry.set(L"HKLM\\Software\\Calvera\\Meridon\\sysMessageToConsole", L"true");
  process({L"a"});
  EXPECT_EQ(ownMessages(), Messages({L"ERROR INITIATING SYSMESSAGE, error=Message 6.", L"a"}));
  windows_.system.hasConsole = true;
  process({L"b"});
  EXPECT_NE(windows_.system.consoleText().find(L"] b\r\n"), std::wstring::npos);
  windows_.faults.failNth("WaitForSingleObject", 1, 6);
  process({L"c", L"d"});
  EXPECT_EQ(ownMessages().size(), 6U);
  EXPECT_EQ(ownMessages()[4], L"ERROR IN SYSMESSAGE WaitForSingleObject, error=Message 6.");
  set(L"LogFileDirectory", L"");
  set(L"userModeLogPrograms", L"other.exe, MDDCT.EXE");
  process({L"e"});
  EXPECT_EQ(windows_.files.list(L"C:\\Windows\\System32\\config\\systemprofile\\AppData\\Local\\Calvera\\Meridon\\logs")
                .size(),
            1U);
}

}  // namespace
