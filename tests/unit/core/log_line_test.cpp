#include "core/log/log_line.h"

#include <gtest/gtest.h>

#include <tuple>

#include "core/base/unicode.h"
#include "core/format/format.h"
#include "tests/sim/windows.h"

namespace {

TEST(LogLineTest, TimeStamps) {
  sim::Windows windows;
  const std::wstring path = L"HKLM\\SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation\\ActiveTimeBias";
  windows.clock.set({2026, 3, 0, 1, 0, 5, 9, 7});
  const platform::FileTime then = windows.clock.GetSystemTimeAsFileTime();
  windows.clock.advance(1000);
  const std::tuple<std::uint32_t, int, std::wstring> rows[] = {
      {0, 0, L"2026-03-01T00:05:09.007Z"},         {0, 300, L"2026-02-28T19:05:09.007-05:00"},
      {0, -345, L"2026-03-01T05:50:09.007+05:45"}, {0xFFFFFFC4, 300, L"2026-03-01T01:05:09.007+01:00"},
      {210, 0, L"2026-02-28T20:35:09.007-03:30"},  {1441, -60, L"2026-03-01T00:05:10.007Z"},  // shows the present
  };
  for (const auto& [bias, platformBias, stamp] : rows) {
    windows.registry.set(path, bias);
    windows.clock.biasMinutes = platformBias;
    EXPECT_EQ(CORE::timeStamp(then, CORE::currentBias(true)), stamp) << bias;
  }
  EXPECT_EQ(CORE::currentBias(false), 0);
}

TEST(LogLineTest, LinesByTheirLayout) {
  sim::Windows windows;
  const CORE::LineLayout plain{0x1092, L"1092", L"Xvtxx", false, true, 0};
  const CORE::LineLayout cut{0x51092, L"1092", L"mdDCT", true, false, 0};
  const std::tuple<CORE::LogRecord, CORE::LineLayout, std::string> rows[] = {
      {{0, L"", L"m(): a", L"main", 0, 0, 0x2C}, plain, "TRACE (1092-002C) <main> [X***x] m(): a"},
      {{1, L"", L"", L"main", 0, 0, 0x10000}, plain, "DEBUG (1092-10000) <main> [X***x] "},
      {{3, L"", L"a", L"main", 0, 0, 0x12345}, cut, "WARN  (1092-2345) <main> [mdDCT] a"},
      {{4, L"", L"a\r\nb", L"main", 0, 0, 1}, cut, "ERROR (1092-0001) <main> [mdDCT] a\r\nb"},
      {{5, L"", L"VtX vtx", L"main", 0, 0, 1}, cut, "FATAL (1092-0001) <main> [mdDCT] VtX vtx"},
      {{6, L"", L"VtX vvtxtx", L"vTx", 0, 0, 1}, plain, "UNKNOWN (1092-0001) <***> [X***x] *** v***tx"},
  };
  for (const auto& [record, layout, rest] : rows) {
    EXPECT_EQ(CORE::LineMaker(layout).line(record), "1601-01-01T00:00:00.000Z " + rest + "\r\n");
  }
  CORE::LineMaker maker(cut);  // the parts that lines share change when they must
  for (CORE::LogRecord record{2, L"", L"", L"c", 0, 0, 7}; record.time < 30'000'000; record.time += 9'995'000) {
    const std::string ids = CORE::formatNarrow(" INFO  (1092-%04X) <c> [mdDCT] \r\n", ++record.threadId);
    EXPECT_EQ(maker.line(record), CORE::toUtf8Lossy(CORE::timeStamp(record.time, 0)) + ids);
  }
}

}  // namespace
