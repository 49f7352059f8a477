#include "tests/sim/clock.h"

namespace sim {
namespace {

constexpr platform::FileTime kTicksPerMillisecond = 10000;
constexpr platform::FileTime kTicksPerDay = 24ull * 3600 * 1000 * kTicksPerMillisecond;
constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;
constexpr platform::FileTime kTicksPerMinute = 60ull * 1000 * kTicksPerMillisecond;

bool isLeap(std::int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysOfMonth(std::int64_t year, int month) {
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return kDays[month - 1] + (month == 2 && isLeap(year) ? 1 : 0);
}

platform::SystemTime toSystemTime(platform::FileTime time) {
  std::uint64_t days = time / kTicksPerDay;
  std::uint64_t rest = time % kTicksPerDay / kTicksPerMillisecond;
  platform::SystemTime result;
  result.dayOfWeek = static_cast<std::uint16_t>((days + 1) % 7);  // 1601-01-01 was a Monday
  result.milliseconds = static_cast<std::uint16_t>(rest % 1000);
  result.second = static_cast<std::uint16_t>(rest / 1000 % 60);
  result.minute = static_cast<std::uint16_t>(rest / 60000 % 60);
  result.hour = static_cast<std::uint16_t>(rest / 3600000);
  int year = 1601;
  for (; days >= (isLeap(year) ? 366u : 365u); ++year) {
    days -= isLeap(year) ? 366u : 365u;
  }
  int month = 1;
  for (; days >= static_cast<std::uint64_t>(daysOfMonth(year, month)); ++month) {
    days -= static_cast<std::uint64_t>(daysOfMonth(year, month));
  }
  result.year = static_cast<std::uint16_t>(year);
  result.month = static_cast<std::uint16_t>(month);
  result.day = static_cast<std::uint16_t>(days + 1);
  return result;
}

platform::FileTime toFileTime(const platform::SystemTime& time) {
  std::uint64_t days = 0;
  for (int year = 1601; year < time.year; ++year) {
    days += isLeap(year) ? 366u : 365u;
  }
  for (int month = 1; month < time.month; ++month) {
    days += static_cast<std::uint64_t>(daysOfMonth(time.year, month));
  }
  days += time.day - 1u;
  const std::uint64_t seconds = (time.hour * 60u + time.minute) * 60u + time.second;
  return days * kTicksPerDay + (seconds * 1000 + time.milliseconds) * kTicksPerMillisecond;
}

}  // namespace

Clock::Clock(Kernel& kernel) : kernel_(kernel) { set(platform::SystemTime{2026, 11, 5, 13, 4, 13, 48, 123}); }

void Clock::set(platform::FileTime time) { kernel_.setNow(time); }

void Clock::set(const platform::SystemTime& utc) { set(toFileTime(utc)); }

void Clock::advance(std::uint64_t milliseconds) { kernel_.advance(milliseconds); }

platform::SystemTime Clock::GetSystemTime() {
  kernel_.faults.note("GetSystemTime");
  return toSystemTime(kernel_.now());
}

platform::FileTime Clock::GetSystemTimeAsFileTime() {
  kernel_.faults.note("GetSystemTimeAsFileTime");
  return kernel_.now();
}

platform::Result<platform::FileTime> Clock::FileTimeToLocalFileTime(platform::FileTime utc) {
  if (const auto error = kernel_.faults.pass("FileTimeToLocalFileTime")) {
    return {false, 0, *error};
  }
  const auto minutes = static_cast<platform::FileTime>(static_cast<std::int64_t>(biasMinutes));
  return {true, utc - minutes * kTicksPerMinute, 0};
}

platform::Result<platform::SystemTime> Clock::FileTimeToSystemTime(platform::FileTime time) {
  if (const auto error = kernel_.faults.pass("FileTimeToSystemTime")) {
    return {false, {}, *error};
  }
  if (time >> 63 != 0) {
    return {false, {}, platform::kErrorInvalidParameter};
  }
  return {true, toSystemTime(time), 0};
}

std::uint32_t Clock::GetTickCount() {
  kernel_.faults.note("GetTickCount");
  return static_cast<std::uint32_t>(kernel_.now() / kTicksPerMillisecond);
}

std::int64_t Clock::_time64() {
  kernel_.faults.note("_time64");
  return static_cast<std::int64_t>(kernel_.now() / (1000 * kTicksPerMillisecond)) - kSecondsFrom1601To1970;
}

}  // namespace sim
