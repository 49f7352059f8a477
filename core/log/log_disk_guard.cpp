#include "core/log/log_disk_guard.h"

#include "core/log/log_settings.h"
#include "core/settings/configuration.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace CORE {
namespace {

constexpr std::uint32_t kCheckInterval = 5000;  // milliseconds
constexpr std::uint64_t kMiB = 1 << 20;

}  // namespace

LogDiskGuard::Action LogDiskGuard::check(std::uint32_t ticks) {
  if (!checked_ || ticks - checkedAt_ >= kCheckInterval) {
    const bool first = !checked_;
    checked_ = true;
    checkedAt_ = ticks;
    if (stopped_) {
      thresholdMB_ = LogSettings::readNumber(kDiskThresholdForLogAndEventsMB);
    }
    const bool before = stopped_ || (first && readSettingBool(kLoggedThresholdReached));
    stopped_ = !hasSpace();
    if (stopped_ != before) {
      // When that fails, the next process logs the stop once more.
      writeSetting(kLoggedThresholdReached, stopped_ ? 1 : 0);
    }
    if (stopped_ && !before) {
      return Action::kWriteLastLine;
    }
  }
  return stopped_ ? Action::kDrop : Action::kWrite;
}

bool LogDiskGuard::hasSpace() const {
  const auto free = platform::current().files.GetDiskFreeSpaceExW(folder_);
  return !free || free.value >= thresholdMB_ * kMiB;
}

}  // namespace CORE
