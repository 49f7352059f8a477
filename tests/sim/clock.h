#pragma once

#include "platform/clock.h"
#include "tests/sim/kernel.h"

namespace sim {

/// A clock that only the test and waits with a limit move. Starts at 2026-11-13 04:13:48.123 UTC.
class Clock : public platform::Clock {
 public:
  explicit Clock(Kernel& kernel);

  void set(platform::FileTime time);
  void set(const platform::SystemTime& utc);
  /// Moves on; waits whose limit has come end.
  void advance(std::uint64_t milliseconds);
  /// UTC = local time + bias, minutes (as the platform counts it: -60 is one hour east of Greenwich).
  int biasMinutes = 0;

  platform::SystemTime GetSystemTime() override;
  platform::FileTime GetSystemTimeAsFileTime() override;
  platform::Result<platform::FileTime> FileTimeToLocalFileTime(platform::FileTime utc) override;
  platform::Result<platform::SystemTime> FileTimeToSystemTime(platform::FileTime time) override;
  std::uint32_t GetTickCount() override;
  std::int64_t _time64() override;

 private:
  Kernel& kernel_;
};

}  // namespace sim
