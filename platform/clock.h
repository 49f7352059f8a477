#pragma once

#include <cstdint>

#include "platform/result.h"

namespace platform {

/// FILETIME as one number: the 100-nanosecond steps since 1601-01-01 00:00 UTC.
using FileTime = std::uint64_t;

// Lengths of time in steps of FileTime.
inline constexpr FileTime kFileTimePerMillisecond = 10'000;
inline constexpr FileTime kFileTimePerSecond = 1000 * kFileTimePerMillisecond;
inline constexpr FileTime kFileTimePerMinute = 60 * kFileTimePerSecond;
inline constexpr FileTime kFileTimePerDay = 1440 * kFileTimePerMinute;

/// Layout and meaning of SYSTEMTIME: `month` is 1 to 12, `dayOfWeek` 0 (Sunday) to 6.
struct SystemTime {
  std::uint16_t year = 0;
  std::uint16_t month = 0;
  std::uint16_t dayOfWeek = 0;
  std::uint16_t day = 0;
  std::uint16_t hour = 0;
  std::uint16_t minute = 0;
  std::uint16_t second = 0;
  std::uint16_t milliseconds = 0;
};

/// Clocks. Every operation is one platform call of that name; any thread may call.
class Clock {
 public:
  virtual ~Clock() = default;

  virtual SystemTime GetSystemTime() = 0;          ///< UTC
  virtual FileTime GetSystemTimeAsFileTime() = 0;  ///< UTC
  virtual Result<FileTime> FileTimeToLocalFileTime(FileTime utc) = 0;
  virtual Result<SystemTime> FileTimeToSystemTime(FileTime time) = 0;
  virtual std::uint32_t GetTickCount() = 0;  ///< milliseconds since the system's start; wraps after 49.7 days
  virtual std::int64_t _time64() = 0;        ///< seconds since 1970-01-01 UTC
};

}  // namespace platform
