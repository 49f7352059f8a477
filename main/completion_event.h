#pragma once

#include <atomic>

#include "core/base/mutex.h"
#include "platform/handle.h"
#include "platform/result.h"

/// The event that the run waits for until the upload has ended, and the upload's result. The completion callback of the
/// upload stores the result and sets the event; a refused SetEvent is retried (kMaxSignalAttempts).
///
/// The run and the completion callback own it together, so a completion that comes after a failed wait still finds it.
/// The event inside is closed by the run alone, at its place in the clean-up. report() may run on any thread, the other
/// operations on the main thread.
class CompletionEvent {
 public:
  /// How often report() calls SetEvent at most. A run that is never woken would hold the machine's mutex for ever.
  static constexpr int kMaxSignalAttempts = 3;

  CompletionEvent() = default;
  CompletionEvent(const CompletionEvent&) = delete;
  CompletionEvent& operator=(const CompletionEvent&) = delete;

  /// Creates the event. False, with one ERROR line, when that fails.
  bool open() EXCLUDES(mutex_);
  /// Closes the event. A report that comes later only stores the result.
  void close() EXCLUDES(mutex_);

  /// Stores the result, then sets the event, with one ERROR line for each refused attempt.
  void report(bool succeeded) EXCLUDES(mutex_);

  /// Waits for the report, without a time limit. False, with one ERROR line, when the wait itself fails.
  bool wait() const EXCLUDES(mutex_);
  /// Returns the reported result; false before the report.
  bool succeeded() const { return succeeded_.load(); }

 private:
  std::atomic<bool> succeeded_{false};
  mutable CORE::Mutex mutex_;  ///< held over SetEvent, so that close() waits for it
  platform::KernelHandle event_ GUARDED_BY(mutex_);
};
