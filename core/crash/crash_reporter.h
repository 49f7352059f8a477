#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "core/base/mutex.h"
#include "platform/crash.h"

namespace CORE {

/// The thread that reports crashes. It is started before there is one, because the thread that fails may have no stack
/// left, or hold a lock that the report needs. The thread lives as long as the process, so the object must never be
/// destroyed. Waits are in real time; the thread calls the platform only while it reports.
class CrashReporter {
 public:
  /// A function that makes the report, on the reporting thread.
  /// \param info  the crash; null after std::terminate.
  using Work = void (*)(const platform::CrashInfo* info) noexcept;

  /// \param timeout  the time for which report() waits.
  explicit CrashReporter(Work work, std::chrono::milliseconds timeout = std::chrono::seconds(30))
      : work_(work), timeout_(timeout) {}
  CrashReporter(const CrashReporter&) = delete;
  CrashReporter& operator=(const CrashReporter&) = delete;

  /// Starts the thread, unless it runs. When it cannot be started, report() fails at once. Any thread.
  void start() noexcept EXCLUDES(mutex_);

  /// Makes the reporting thread do its work on a copy of `info`, and waits for the end of the work; before that for the
  /// end of an earlier report. Any thread.
  /// \return false when the work did not end in time, or when there is no thread.
  bool report(const platform::CrashInfo* info) noexcept EXCLUDES(mutex_);

 private:
  void run() noexcept EXCLUDES(mutex_);

  const Work work_;
  const std::chrono::milliseconds timeout_;
  Mutex mutex_;
  std::condition_variable changed_;
  bool started_ GUARDED_BY(mutex_) = false;
  std::uint64_t asked_ GUARDED_BY(mutex_) = 0;  ///< reports that were requested
  std::uint64_t done_ GUARDED_BY(mutex_) = 0;   ///< reports that have ended
  std::optional<platform::CrashInfo> info_ GUARDED_BY(mutex_);
  /// Memory that is freed before the first report, which may be about a lack of memory.
  std::unique_ptr<std::byte[]> reserve_ GUARDED_BY(mutex_);
};

}  // namespace CORE
