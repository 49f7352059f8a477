#include "http/event_queue.h"

#include <utility>

#include "platform/winhttp.h"

bool EventQueue::push(const CallbackEvent& event) {
  const std::lock_guard guard(mutex_);
  events_.push_back(event);
  return claim();
}

bool EventQueue::pushClosing() noexcept {
  const std::lock_guard guard(mutex_);
  closing_ = true;
  return claim();
}

bool EventQueue::pop(CallbackEvent& event) noexcept {
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
  draining_ = false;
  return false;
}

bool EventQueue::claim() noexcept { return !std::exchange(draining_, true); }
