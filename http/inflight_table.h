#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

class WinHttpRequest;

/// The process-wide table of the exchanges in flight: it owns each request from its send to HANDLE_CLOSING, under the
/// number that WinHTTP hands back as the context. Numbers are never used twice, so a callback that comes late finds
/// nothing rather than another request. Never destroyed: workers may outlive the entry point. Any thread.
class InflightTable {
 public:
  static InflightTable& instance();

  /// Takes a share of the request; returns its number, which is never 0.
  std::uintptr_t add(std::shared_ptr<WinHttpRequest> request);
  /// The request of that number; null when it is not in flight.
  std::shared_ptr<WinHttpRequest> find(std::uintptr_t number);
  /// As find, and takes it out.
  std::shared_ptr<WinHttpRequest> take(std::uintptr_t number);

 private:
  InflightTable() = default;
  ~InflightTable() = default;

  std::mutex mutex_;
  std::uintptr_t last_ = 0;
  std::unordered_map<std::uintptr_t, std::shared_ptr<WinHttpRequest>> requests_;
};
