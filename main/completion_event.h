#pragma once

#include <atomic>
#include <mutex>

#include "platform/handle.h"
#include "platform/result.h"

/// What the upload's completion writes and the run waits for: the result flag and the completion event.
///
/// The run and the completion callback own it together, so a completion that comes after the run has given up waiting
/// still finds it; the event itself is closed by the run alone, at its place in the clean-up. report() may run on any
/// thread, the rest on the main thread.
class CompletionEvent {
 public:
  CompletionEvent() = default;
  CompletionEvent(const CompletionEvent&) = delete;
  CompletionEvent& operator=(const CompletionEvent&) = delete;

  /// Creates the event. False, with one ERROR line, when that fails.
  bool open();
  /// Closes the event; reports that come later only set the flag.
  void close();

  /// Stores the result, then signals the event.
  void report(bool succeeded);

  /// Waits for the report without time-out. False, with one ERROR line, when the wait itself fails.
  bool wait() const;
  /// What was reported; false before the first report.
  bool succeeded() const { return succeeded_.load(); }

 private:
  std::atomic<bool> succeeded_{false};
  std::mutex mutex_;  ///< keeps close() and the signal of report() apart
  platform::KernelHandle event_;
};
