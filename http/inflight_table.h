#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>

#include "core/base/mutex.h"

class WinHttpRequest;

/// The process-wide table of the exchanges in flight. It owns each request from its send to HANDLE_CLOSING, under the
/// number that WinHTTP hands back as the context. A number is never used twice, so a notification that comes late finds
/// nothing rather than another request. Never destroyed: WinHTTP's threads may outlive the entry point. Any thread.
class InflightTable {
 public:
  static InflightTable& instance();

  /// Shares the request.
  /// \return its number, which is never 0.
  std::uintptr_t add(std::shared_ptr<WinHttpRequest> request) EXCLUDES(mutex_);
  /// Returns the request of that number; null when it is not in flight.
  std::shared_ptr<WinHttpRequest> find(std::uintptr_t number) EXCLUDES(mutex_);
  /// As find(), and removes it.
  std::shared_ptr<WinHttpRequest> take(std::uintptr_t number) EXCLUDES(mutex_);

 private:
  InflightTable() = default;
  ~InflightTable() = default;

  CORE::Mutex mutex_;
  std::uintptr_t last_ GUARDED_BY(mutex_) = 0;
  std::unordered_map<std::uintptr_t, std::shared_ptr<WinHttpRequest>> requests_ GUARDED_BY(mutex_);
};
