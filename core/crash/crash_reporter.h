#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/crash.h"

namespace CORE {

/// The thread that reports a crash and writes its minidump, made beforehand: the thread that failed may have no stack
/// left, or hold a lock that a report needs. It waits in real time and calls the platform only while it works, so it
/// lives as long as the process; the object is never destroyed.
class CrashReporter {
 public:
  /// What the thread does about a crash; null: about std::terminate.
  using Work = void (*)(const platform::CrashInfo* info) noexcept;

  /// \param timeout  how long report() waits.
  explicit CrashReporter(Work work, std::chrono::milliseconds timeout = std::chrono::seconds(30))
      : work_(work), timeout_(timeout) {}
  CrashReporter(const CrashReporter&) = delete;
  CrashReporter& operator=(const CrashReporter&) = delete;

  /// Makes the thread, unless it is there. Without one, report() fails at once. Any thread.
  void start() noexcept;

  /// Lets the thread do its work, which gets a copy of `info`. Waits for the end of it: false when it does not come in
  /// time, or when there is no thread. Any thread.
  bool report(const platform::CrashInfo* info) noexcept;

 private:
  void run() noexcept;

  const Work work_;
  const std::chrono::milliseconds timeout_;
  std::mutex mutex_;  ///< guards everything below
  std::condition_variable changed_;
  bool started_ = false;
  std::uint64_t asked_ = 0;
  std::uint64_t done_ = 0;
  std::optional<platform::CrashInfo> info_;
  std::unique_ptr<std::byte[]> reserve_;  ///< given back when memory is needed: for the first report
};

}  // namespace CORE
