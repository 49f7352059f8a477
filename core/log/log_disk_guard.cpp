#include "core/log/log_disk_guard.h"

#include <span>

#include "core/log/log_settings.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/registry.h"

namespace CORE {
namespace {

constexpr std::uint32_t kInterval = 5000;  // milliseconds
constexpr std::uint64_t kMiB = 1 << 20;
constexpr wchar_t kReached[] = L"loggedThresholdReached";

}  // namespace

LogDiskGuard::Action LogDiskGuard::check(std::uint32_t ticks) {
  if (!checked_ || ticks - checkedAt_ >= kInterval) {
    const bool first = !checked_;
    checked_ = true;
    checkedAt_ = ticks;
    if (stopped_) {
      thresholdMB_ = LogSettings::readNumber(L"DiskThresholdForLogAndEventsMB");
    }
    const bool before = stopped_ || (first && LogSettings::readFlag(kReached));
    stopped_ = !hasSpace();
    if (stopped_ != before) {
      remember(stopped_);
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

void LogDiskGuard::remember(bool stopped) {
  auto& registry = platform::current().registry;
  const auto key =
      registry.RegCreateKeyExW(platform::RegistryRoot::kLocalMachine, LogSettings::keyPath(), platform::kKeySetValue);
  if (key) {  // else the next process tells once more
    const std::uint32_t value = stopped ? 1 : 0;
    registry.RegSetValueExW(key.value.get(), kReached, platform::kRegDword, std::as_bytes(std::span(&value, 1)));
  }
}

}  // namespace CORE
