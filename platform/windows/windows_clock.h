#pragma once

#include "platform/clock.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsClock final : public Clock {
 public:
  SystemTime GetSystemTime() override;
  FileTime GetSystemTimeAsFileTime() override;
  Result<FileTime> FileTimeToLocalFileTime(FileTime utc) override;
  Result<SystemTime> FileTimeToSystemTime(FileTime time) override;
  std::uint32_t GetTickCount() override;
  std::int64_t _time64() override;
};

}  // namespace platform
