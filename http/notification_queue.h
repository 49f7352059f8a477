#pragma once

#include <deque>

#include "core/base/mutex.h"
#include "http/notification.h"

/// The notifications of one request in order of arrival, handled by one thread at a time.
///
/// WinHTTP calls back several frames deep, and on its own threads. A notification that comes while another one is being
/// handled is only queued. So the stack stays as shallow as the outermost one, and a step never runs inside another.
/// Any thread.
class NotificationQueue {
 public:
  /// Queues a notification.
  /// \return true when the caller is the one that handles: it calls pop() until that returns false.
  /// \throws std::bad_alloc, and then nothing was queued.
  bool push(const Notification& notification) EXCLUDES(mutex_);

  /// Queues HANDLE_CLOSING, which is handed out after all others. Needs no memory, so it cannot be lost.
  /// \return as push().
  bool pushClosing() noexcept EXCLUDES(mutex_);

  /// Hands out the next notification.
  /// \return false when there is none; the caller is no longer the one that handles.
  bool pop(Notification& notification) noexcept EXCLUDES(mutex_);

 private:
  bool startHandling() noexcept REQUIRES(mutex_);

  CORE::Mutex mutex_;
  std::deque<Notification> waiting_ GUARDED_BY(mutex_);
  bool closing_ GUARDED_BY(mutex_) = false;
  bool handling_ GUARDED_BY(mutex_) = false;
};
