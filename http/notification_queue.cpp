#include "http/notification_queue.h"

#include <utility>

#include "platform/winhttp.h"

bool NotificationQueue::push(const Notification& event) {
  const std::lock_guard guard(mutex_);
  events_.push_back(event);
  return startHandling();
}

bool NotificationQueue::pushClosing() noexcept {
  const std::lock_guard guard(mutex_);
  closing_ = true;
  return startHandling();
}

bool NotificationQueue::pop(Notification& event) noexcept {
  const std::lock_guard guard(mutex_);
  if (!events_.empty()) {
    event = events_.front();
    events_.pop_front();
    return true;
  }
  if (std::exchange(closing_, false)) {
    event = {platform::kStatusHandleClosing, 0, 0};
    return true;
  }
  handling_ = false;
  return false;
}

bool NotificationQueue::startHandling() noexcept { return !std::exchange(handling_, true); }
