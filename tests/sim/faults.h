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

/// Every platform call passes here, under its own name ("CreateEventW"), before it does anything, and a test can make
/// it fail. Calls that close or free something, and simple getters, are counted but cannot fail. The latest fault that
/// applies wins. Any thread.
class Faults {
 public:
  /// Makes the n-th call of that name fail once; the count begins now, with 1.
  void failNth(const std::string& name, std::size_t n, platform::ErrorCode error) {
    add({name, callCount(name) + n, error});
  }
  /// Makes every call of that name fail from now on.
  void failAll(const std::string& name, platform::ErrorCode error) { add({name, kEvery, error}); }
  /// Makes the k-th platform call of the whole run fail; the count begins with 1. Does nothing to a call that cannot
  /// fail.
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
  /// Returns all calls so far, in order: calls()[k - 1] is the one that failCall(k, ...) makes fail.
  std::vector<Call> calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }

  /// The services call it for every platform call. Returns the error with which the call has to fail. Names are
  /// literals.
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
  /// The services call it for a platform call that cannot fail.
  void note(const char* name) { pass(name, false); }

 private:
  struct Fault {
    std::string name;  ///< empty: every name
    std::size_t n;     ///< the number among the calls of that name
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
