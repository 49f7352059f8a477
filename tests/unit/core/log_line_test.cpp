#include "core/log_line.h"

#include <gtest/gtest.h>

#include "core/convert.h"
#include "tests/sim/windows.h"

namespace {

using CORE::LineLayout;
using CORE::LogRecord;

class LogLineTest : public testing::Test {
 protected:
  void SetUp() override { windows_.clock.set({2026, 3, 0, 1, 0, 5, 9, 7}); }
  platform::FileTime now() { return windows_.clock.GetSystemTimeAsFileTime(); }

  sim::Windows windows_;
};

TEST_F(LogLineTest, TimeStamps) {
  struct Row {
    std::int32_t bias;
    int platformBias;
    const wchar_t* stamp;
  };
  const Row rows[] = {
      {0, 0, L"2026-03-01T00:05:09.007Z"},
      {0, -60, L"2026-03-01T01:05:09.007+01:00"},
      {0, 300, L"2026-02-28T19:05:09.007-05:00"},
      {0, -345, L"2026-03-01T05:50:09.007+05:45"},
      {-60, 300, L"2026-03-01T01:05:09.007+01:00"},
      {300, 0, L"2026-02-28T19:05:09.007-05:00"},
      {210, 0, L"2026-02-28T20:35:09.007-03:30"},
      {-1, 0, L"2026-03-01T00:06:09.007+00:01"},
      {CORE::kUnknownBias, -60, L"2026-03-01T00:05:09.007Z"},
  };
  for (const Row& row : rows) {
    windows_.clock.biasMinutes = row.platformBias;
    EXPECT_EQ(CORE::toUtf8Lossy(CORE::timeStamp(now(), row.bias)), CORE::toUtf8Lossy(row.stamp)) << row.bias;
  }
}

TEST_F(LogLineTest, UnknownBiasShowsThePresent) {
  const platform::FileTime then = now();
  windows_.clock.advance(1000);
  EXPECT_EQ(CORE::timeStamp(then, CORE::kUnknownBias), L"2026-03-01T00:05:10.007Z");
  EXPECT_EQ(CORE::timeStamp(then, 0), L"2026-03-01T00:05:09.007Z");
}

TEST_F(LogLineTest, StampWithoutLocalTimeIsUtc) {
  windows_.clock.biasMinutes = -60;
  windows_.faults.failAll("FileTimeToLocalFileTime", platform::kErrorInvalidParameter);
  EXPECT_EQ(CORE::timeStamp(now(), 0), L"2026-03-01T00:05:09.007Z");
}

TEST_F(LogLineTest, WholeLines) {
  LineLayout plain{0x1092, L"1092", L"mdDCT", false, true, 0};
  LineLayout cut = plain;
  cut.processId = 0x51092;
  cut.truncateIds = true;
  LineLayout open = plain;
  open.maskLegacyWord = false;
  struct Row {
    std::uint32_t level;
    std::wstring label;
    std::uint32_t threadId;
    std::wstring message;
    LineLayout layout;
    std::wstring rest;
  };
  const Row rows[] = {
      {0, L"", 0x2C, L"m(): a", plain, L"TRACE (1092-002C) <main> [mdDCT] m(): a"},
      {1, L"", 0xFFFF, L"m(): a", plain, L"DEBUG (1092-FFFF) <main> [mdDCT] m(): a"},
      {2, L"", 0x10000, L"", plain, L"INFO  (1092-10000) <main> [mdDCT] "},
      {3, L"", 0x12345, L"a", plain, L"WARN  (1092-12345) <main> [mdDCT] a"},
      {3, L"", 0x12345, L"a", cut, L"WARN  (1092-2345) <main> [mdDCT] a"},
      {4, L"", 0x1, L"a\r\nb", cut, L"ERROR (1092-0001) <main> [mdDCT] a\r\nb"},
      {5, L"", 0x1, L"a", plain, L"FATAL (1092-0001) <main> [mdDCT] a"},
      {6, L"", 0x1, L"a", plain, L"UNKNOWN (1092-0001) <main> [mdDCT] a"},
      {4, L"AUDIT", 0x1, L"a", plain, L"AUDIT (1092-0001) <main> [mdDCT] a"},
      {2, L"", 0x1, L"VtX vvtxtx vtx", plain, L"INFO  (1092-0001) <main> [mdDCT] *** v***tx ***"},
      {2, L"", 0x1, L"VtX vtx", open, L"INFO  (1092-0001) <main> [mdDCT] VtX vtx"},
  };
  for (const Row& row : rows) {
    const LogRecord record{row.level, row.label, row.message, L"main", now(), 0, row.threadId};
    EXPECT_EQ(CORE::toUtf8Lossy(CORE::logLine(record, row.layout)),
              CORE::toUtf8Lossy(L"2026-03-01T00:05:09.007Z " + row.rest + L"\r\n"));
  }
}

TEST_F(LogLineTest, MaskCoversTheWholeLine) {
  const LogRecord record{2, L"vtx", L"m", L"vTx", now(), 0, 1};
  EXPECT_EQ(CORE::logLine(record, {1, L"VTX", L"Xvtxx", false, true, 0}),
            L"2026-03-01T00:05:09.007Z *** (***-0001) <***> [X***x] m\r\n");
}

TEST_F(LogLineTest, BiasOfTheRegistry) {
  const std::wstring path = L"HKLM\\SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation\\ActiveTimeBias";
  EXPECT_EQ(CORE::currentBias(true), CORE::kUnknownBias);
  windows_.registry.set(path, L"60");  // not a number
  EXPECT_EQ(CORE::currentBias(true), CORE::kUnknownBias);
  struct Row {
    std::uint32_t value;
    std::int32_t bias;
  };
  for (const Row row : {Row{0xFFFFFFC4, -60}, Row{300, 300}, Row{0, 0}, Row{0x80000000, CORE::kUnknownBias},
                        Row{100'000, CORE::kUnknownBias}}) {
    windows_.registry.set(path, row.value);
    EXPECT_EQ(CORE::currentBias(true), row.bias);
    EXPECT_EQ(CORE::currentBias(false), 0);
  }
}

}  // namespace
