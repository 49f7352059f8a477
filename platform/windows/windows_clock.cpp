#include "platform/windows/windows_clock.h"

#include <bit>
#include <ctime>

#include "platform/windows/native.h"

namespace platform {

static_assert(sizeof(SystemTime) == sizeof(SYSTEMTIME));
static_assert(offsetof(SystemTime, year) == offsetof(SYSTEMTIME, wYear));
static_assert(offsetof(SystemTime, month) == offsetof(SYSTEMTIME, wMonth));
static_assert(offsetof(SystemTime, dayOfWeek) == offsetof(SYSTEMTIME, wDayOfWeek));
static_assert(offsetof(SystemTime, day) == offsetof(SYSTEMTIME, wDay));
static_assert(offsetof(SystemTime, hour) == offsetof(SYSTEMTIME, wHour));
static_assert(offsetof(SystemTime, minute) == offsetof(SYSTEMTIME, wMinute));
static_assert(offsetof(SystemTime, second) == offsetof(SYSTEMTIME, wSecond));
static_assert(offsetof(SystemTime, milliseconds) == offsetof(SYSTEMTIME, wMilliseconds));
static_assert(std::bit_cast<FileTime>(FILETIME{.dwLowDateTime = 1, .dwHighDateTime = 2}) == 0x2'00000001);

SystemTime WindowsClock::GetSystemTime() {
  SYSTEMTIME now{};
  ::GetSystemTime(&now);
  return std::bit_cast<SystemTime>(now);
}

FileTime WindowsClock::GetSystemTimeAsFileTime() {
  FILETIME now{};
  ::GetSystemTimeAsFileTime(&now);
  return std::bit_cast<FileTime>(now);
}

Result<FileTime> WindowsClock::FileTimeToLocalFileTime(FileTime utc) {
  const FILETIME source = std::bit_cast<FILETIME>(utc);
  FILETIME local{};
  const BOOL converted = ::FileTimeToLocalFileTime(&source, &local);
  return resultOf(converted, std::bit_cast<FileTime>(local));
}

Result<SystemTime> WindowsClock::FileTimeToSystemTime(FileTime time) {
  const FILETIME source = std::bit_cast<FILETIME>(time);
  SYSTEMTIME parts{};
  const BOOL converted = ::FileTimeToSystemTime(&source, &parts);
  return resultOf(converted, std::bit_cast<SystemTime>(parts));
}

std::uint32_t WindowsClock::GetTickCount() { return ::GetTickCount(); }

std::int64_t WindowsClock::_time64() { return ::_time64(nullptr); }

}  // namespace platform
