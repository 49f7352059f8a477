#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/result.h"

namespace sim {

/// The one point that every platform call passes, under its own name ("CreateEventW"), before it does anything.
/// Closing and freeing calls and pure getters are counted but cannot be failed. Any thread.
class Faults {
 public:
  /// Fails the n-th call (from 1, counted from now on) of that name, once.
  void failNth(const std::string& name, std::size_t n, platform::ErrorCode error);
  /// Fails every call of that name from now on.
  void failAll(const std::string& name, platform::ErrorCode error);
  /// Fails the k-th platform call (from 1) of the whole run whatever it is; nothing happens when it cannot be failed.
  void failCall(std::size_t k, platform::ErrorCode error);
  /// Forgets every fault asked for.
  void clear();

  std::size_t callCount(const std::string& name) const;
  /// The names of all calls so far, in order: calls()[k - 1] is what failCall(k, ...) meets.
  std::vector<std::string> calls() const;
  /// How many calls have been failed.
  std::size_t fired() const;

  /// For the services: passes the point; the error when the call is to fail.
  std::optional<platform::ErrorCode> pass(const char* name);
  /// For the services: passes the point with a call that cannot be failed.
  void note(const char* name);

 private:
  mutable std::mutex mutex_;
  std::vector<const char*> calls_;
  std::map<std::string, std::size_t> counts_;
  std::map<std::string, std::map<std::size_t, platform::ErrorCode>> nth_;
  std::map<std::string, platform::ErrorCode> all_;
  std::map<std::size_t, platform::ErrorCode> kth_;
  std::size_t fired_ = 0;
};

}  // namespace sim
