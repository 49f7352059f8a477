#pragma once

#include <cstdint>
#include <string>

namespace CORE {

/// Stops the log while the volume of its folder has less free space than kDiskThresholdForLogAndEventsMB. The registry
/// remembers the stop (kLoggedThresholdReached): a process that finds it there does not log it a second time. The
/// owner's lock guards the object.
class LogDiskGuard {
 public:
  enum class Action {
    kWrite,
    kWriteLastLine,  ///< the stop begins: one line says so, then nothing is written
    kDrop,
  };

  LogDiskGuard() = default;
  LogDiskGuard(std::wstring folder, std::uint32_t thresholdMB)
      : folder_(std::move(folder)), thresholdMB_(thresholdMB) {}

  /// Decides about the records that are to be written now. The free space is read at most once every five seconds, and
  /// during a stop the threshold with it. A volume whose free space cannot be read counts as having enough.
  /// \param ticks  now, in milliseconds.
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
