#include <algorithm>
#include <cstdlib>

#include "platform/clock.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

constexpr std::int64_t kStepsASecond = 10000000;
constexpr platform::FileTime kNewYear2020 = 132223104000000000;  // 2020-01-01 00:00 UTC, a Wednesday
constexpr std::int64_t kUnixEpoch = 11644473600;                 // in seconds since 1601

}  // namespace

void clock(int expectedOffset) {
  platform::Clock& clock = platform::current().clock;

  const auto parts = clock.FileTimeToSystemTime(kNewYear2020 + 12345 * kStepsASecond + 6780000);
  const platform::SystemTime& time = parts.value;
  that(parts.ok && time.year == 2020 && time.month == 1 && time.day == 1 && time.dayOfWeek == 3 && time.hour == 3 &&
           time.minute == 25 && time.second == 45 && time.milliseconds == 678,
       "clock: a known moment is taken apart");
  that(!clock.FileTimeToSystemTime(~platform::FileTime{0}).ok, "clock: a moment out of range is refused");

  const platform::FileTime now = clock.GetSystemTimeAsFileTime();
  const auto local = clock.FileTimeToLocalFileTime(now);
  const std::int64_t ahead = static_cast<std::int64_t>(local.value - now) / kStepsASecond / 60;
  that(local.ok && ahead % 15 == 0 && std::llabs(ahead) <= 14 * 60, "clock: local time is off by whole quarters");
  note("local time is " + std::to_string(ahead) + " minutes ahead of UTC");
  if (expectedOffset == kAnyOffset) {
    skip("clock: local time follows the zone", "no --offset");
  } else {
    that(ahead == expectedOffset, "clock: local time follows the zone");
  }

  const std::int64_t seconds = static_cast<std::int64_t>(now) / kStepsASecond - kUnixEpoch;
  that(std::llabs(clock._time64() - seconds) <= 1, "clock: both clocks show the same second");
  const platform::SystemTime utc = clock.GetSystemTime();
  const auto nowParts = clock.FileTimeToSystemTime(now);
  const int minutes = (utc.hour * 60 + utc.minute) - (nowParts.value.hour * 60 + nowParts.value.minute);
  that(minutes == 0 || minutes == 1 || minutes == 1 - 24 * 60, "clock: the system time is UTC");

  const std::uint32_t before = clock.GetTickCount();
  platform::current().processes.Sleep(60);
  const std::uint32_t passed = clock.GetTickCount() - before;
  that(passed >= 40 && passed < 10000, "clock: ticks are milliseconds");
}

}  // namespace check
