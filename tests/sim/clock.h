#pragma once

#include <functional>

#include "platform/clock.h"
#include "tests/sim/kernel.h"

namespace sim {

/// A clock that only the test and waits with a limit move. It starts at 2026-11-13 04:13:48.123 UTC.
class Clock : public platform::Clock {
 public:
  explicit Clock(Kernel& kernel) : kernel_(kernel) { set(SystemTime{2026, 11, 5, 13, 4, 13, 48, 123}); }

  void set(FileTime time) { kernel_.setNow(time); }
  void set(const SystemTime& utc) { set(toFileTime(utc)); }
  /// Moves the clock on. A wait whose limit is reached ends.
  void advance(std::uint64_t milliseconds) { set(kernel_.now() + milliseconds * kFileTimePerMillisecond); }
  /// The minutes from local time to UTC, as Windows counts them: -60 is one hour east of Greenwich.
  int biasMinutes = 0;
  /// Called by GetSystemTime, which throws what this throws.
  std::function<void()> onGetSystemTime = [] {};

  SystemTime GetSystemTime() override {
    kernel_.faults.note(__func__);
    onGetSystemTime();
    return toSystemTime(kernel_.now());
  }
  FileTime GetSystemTimeAsFileTime() override {
    kernel_.faults.note(__func__);
    return kernel_.now();
  }
  Result<FileTime> FileTimeToLocalFileTime(FileTime utc) override {
    return kernel_.call(__func__, [&] { return utc - static_cast<FileTime>(biasMinutes * 60 * kTicksPerSecond); });
  }
  Result<SystemTime> FileTimeToSystemTime(FileTime time) override {
    return kernel_.call(__func__, [&] {
      refuseIf(time >> 63 != 0, kErrorInvalidParameter);
      return toSystemTime(time);
    });
  }
  std::uint32_t GetTickCount() override {
    kernel_.faults.note(__func__);
    return static_cast<std::uint32_t>(kernel_.now() / kFileTimePerMillisecond);
  }
  std::int64_t _time64() override {
    kernel_.faults.note(__func__);
    return static_cast<std::int64_t>(kernel_.now()) / kTicksPerSecond - 11'644'473'600;  // from 1601 to 1970
  }

 private:
  using days = std::chrono::days;
  using sys_days = std::chrono::sys_days;

  static constexpr std::int64_t kTicksPerSecond = kFileTimePerSecond;
  static constexpr std::int64_t kTicksPerDay = kFileTimePerDay;
  static constexpr sys_days kFirstDay = std::chrono::year(1601) / 1 / 1;

  static SystemTime toSystemTime(FileTime time) {
    const auto ticks = static_cast<std::int64_t>(time);
    const std::int64_t rest = ticks % kTicksPerDay * 1000 / kTicksPerSecond;  // milliseconds
    const sys_days day = kFirstDay + days(ticks / kTicksPerDay);
    const std::chrono::year_month_day date = day;
    const auto field = [](auto value) { return static_cast<std::uint16_t>(value); };
    return {field(static_cast<int>(date.year())),
            field(static_cast<unsigned>(date.month())),
            field(std::chrono::weekday(day).c_encoding()),
            field(static_cast<unsigned>(date.day())),
            field(rest / 3600000),
            field(rest / 60000 % 60),
            field(rest / 1000 % 60),
            field(rest % 1000)};
  }

  static FileTime toFileTime(const SystemTime& time) {
    using namespace std::chrono;
    const auto sinceFirst = sys_days(year(time.year) / month(time.month) / day(time.day)) - kFirstDay;
    const auto whole = sinceFirst + hours(time.hour) + minutes(time.minute) + seconds(time.second);
    return static_cast<FileTime>((whole + milliseconds(time.milliseconds)).count()) * kFileTimePerMillisecond;
  }

  Kernel& kernel_;
};

}  // namespace sim
