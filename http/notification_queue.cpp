#include "http/notification_queue.h"

#include <utility>

#include "platform/winhttp.h"

bool NotificationQueue::push(const Notification& notification) {
  const CORE::MutexLock lock(mutex_);
  waiting_.push_back(notification);
  return startHandling();
}

bool NotificationQueue::pushClosing() noexcept {
  const CORE::MutexLock lock(mutex_);
  closing_ = true;
  return startHandling();
}

bool NotificationQueue::pop(Notification& notification) noexcept {
  const CORE::MutexLock lock(mutex_);
  if (!waiting_.empty()) {
    notification = waiting_.front();
    waiting_.pop_front();
    return true;
  }
  if (std::exchange(closing_, false)) {
    notification = {platform::kStatusHandleClosing, 0, 0};
    return true;
  }
  handling_ = false;
  return false;
}

bool NotificationQueue::startHandling() noexcept { return !std::exchange(handling_, true); }
