#pragma once

#include <cstdint>
#include <deque>
#include <mutex>

/// What a status notification brought, copied out of WinHTTP's memory.
struct Notification {
  std::uint32_t status = 0;
  std::uint32_t number = 0;  ///< bytes, bits or error number, by status
  std::uintptr_t api = 0;    ///< REQUEST_ERROR: the number of the API that failed
};

/// The notifications of one request in order of arrival, handled by one thread at a time. WinHTTP calls back several
/// deep, and on workers; a nested or concurrent notification is only queued, so the stack stays as shallow as the
/// outermost one and a step never runs inside another. Any thread.
class NotificationQueue {
 public:
  /// Queues an event. True when the caller is the one to drain: it calls pop until that gives false.
  /// \throws std::bad_alloc, and then nothing was queued.
  bool push(const Notification& event);

  /// Queues HANDLE_CLOSING, which is handed out after all others. Needs no memory, so it cannot be lost.
  bool pushClosing() noexcept;

  /// Hands out the next event. False when there is none; the caller is no longer the one that drains.
  bool pop(Notification& event) noexcept;

 private:
  bool startHandling() noexcept;

  std::mutex mutex_;
  std::deque<Notification> events_;
  bool closing_ = false;
  bool handling_ = false;
};
