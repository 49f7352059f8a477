#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/result.h"

namespace sim {

/// The one point that every platform call passes, under its own name ("CreateEventW"), before it does anything.
/// Closing and freeing calls and pure getters are counted but cannot be failed. The latest fault wins. Any thread.
class Faults {
 public:
  /// Fails the n-th call (from 1, counted from now on) of that name, once.
  void failNth(const std::string& name, std::size_t n, platform::ErrorCode error) {
    add({name, callCount(name) + n, error});
  }
  /// Fails every call of that name from now on.
  void failAll(const std::string& name, platform::ErrorCode error) { add({name, kEvery, error}); }
  /// Fails the k-th platform call (from 1) of the whole run whatever it is; nothing happens when it cannot be failed.
  void failCall(std::size_t k, platform::ErrorCode error) { add({"", k, error}); }

  std::size_t callCount(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    const auto found = counts_.find(name);
    return found == counts_.end() ? 0 : found->second;
  }
  struct Call {
    std::string_view name;
    bool canFail;
  };
  /// All calls so far, in order: calls()[k - 1] is what failCall(k, ...) meets.
  std::vector<Call> calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }

  /// For the services: passes the point; the error when the call is to fail. Names are literals.
  std::optional<platform::ErrorCode> pass(const char* name, bool canFail = true) {
    const std::lock_guard lock(mutex_);
    calls_.push_back({name, canFail});
    const std::size_t count = ++counts_[name];
    const auto newest = std::find_if(faults_.rbegin(), faults_.rend(), [&](const Fault& fault) {
      const std::size_t number = fault.name.empty() ? calls_.size() : count;
      return (fault.name.empty() || fault.name == name) && (fault.n == number || fault.n == kEvery);
    });
    return newest == faults_.rend() ? std::nullopt : std::optional(newest->error);
  }
  /// For the services: passes the point with a call that cannot be failed.
  void note(const char* name) { pass(name, false); }

 private:
  struct Fault {
    std::string name;  ///< empty: of any name
    std::size_t n;     ///< among those of the name
    platform::ErrorCode error;
  };
  static constexpr std::size_t kEvery = 0;
  void add(const Fault& fault) {
    const std::lock_guard lock(mutex_);
    faults_.push_back(fault);
  }

  mutable std::mutex mutex_;
  std::vector<Call> calls_;
  std::map<std::string_view, std::size_t> counts_;
  std::vector<Fault> faults_;
};

}  // namespace sim
