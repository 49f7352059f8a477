#pragma once

#include <cstdint>
#include <string>

namespace CORE {

/// Stops the log while the volume of its folder has less free space than "DiskThresholdForLogAndEventsMB". The stop is
/// remembered in the registry ("loggedThresholdReached"), so that a process that finds it there says nothing again.
/// Guarded by its owner.
class LogDiskGuard {
 public:
  enum class Action {
    kWrite,
    kWriteLastLine,  ///< the stop begins: one line is to tell of it, then nothing is written
    kDrop,
  };

  LogDiskGuard() = default;
  LogDiskGuard(std::wstring folder, std::uint32_t thresholdMB)
      : folder_(std::move(folder)), thresholdMB_(thresholdMB) {}

  /// \param ticks  now, in milliseconds
  /// Looks at the volume, at most once every five seconds; a stop reads the threshold anew each time. A volume that
  /// cannot be asked has space.
  Action check(std::uint32_t ticks);

 private:
  bool hasSpace() const;

  std::wstring folder_;
  std::uint32_t thresholdMB_ = 0;
  bool checked_ = false;
  std::uint32_t checkedAt_ = 0;
  bool stopped_ = false;
};

}  // namespace CORE
