#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/result.h"

namespace sim {

/// The one point that every platform call passes, under its own name ("CreateEventW"), before it does anything.
/// Closing and freeing calls and pure getters are counted but cannot be failed. Any thread.
class Faults {
 public:
  /// Fails the n-th call (from 1, counted from now on) of that name, once.
  void failNth(const std::string& name, std::size_t n, platform::ErrorCode error) {
    const std::lock_guard lock(mutex_);
    faults_[{name, counts_[name] + n}] = error;
  }
  /// Fails every call of that name from now on.
  void failAll(const std::string& name, platform::ErrorCode error) {
    const std::lock_guard lock(mutex_);
    faults_[{name, kEvery}] = error;
  }
  /// Fails the k-th platform call (from 1) of the whole run whatever it is; nothing happens when it cannot be failed.
  void failCall(std::size_t k, platform::ErrorCode error) {
    const std::lock_guard lock(mutex_);
    faults_[{kAnyName, k}] = error;
  }
  /// Forgets every fault asked for.
  void clear() {
    const std::lock_guard lock(mutex_);
    faults_.clear();
  }

  std::size_t callCount(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    return counts_.contains(name) ? counts_.at(name) : 0;
  }
  /// The names of all calls so far, in order: calls()[k - 1] is what failCall(k, ...) meets.
  std::vector<std::string> calls() const {
    const std::lock_guard lock(mutex_);
    return {calls_.begin(), calls_.end()};
  }

  /// Whether the k-th call (from 1) can be failed at all.
  bool canFail(std::size_t k) const {
    const std::lock_guard lock(mutex_);
    return !fixed_.contains(k);
  }

  /// For the services: passes the point; the error when the call is to fail.
  std::optional<platform::ErrorCode> pass(const char* name) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(name);
    const std::size_t count = ++counts_[name];
    for (const Fault& fault : {Fault(kAnyName, calls_.size()), Fault(name, count), Fault(name, kEvery)}) {
      if (const auto found = faults_.find(fault); found != faults_.end()) {
        return found->second;
      }
    }
    return std::nullopt;
  }
  /// For the services: passes the point with a call that cannot be failed.
  void note(const char* name) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(name);
    ++counts_[name];
    fixed_.insert(calls_.size());
  }

 private:
  using Fault = std::pair<std::string, std::size_t>;  ///< a call's name and its number among those of the name
  static constexpr const char* kAnyName = "";         ///< the number counts all calls
  static constexpr std::size_t kEvery = 0;

  mutable std::mutex mutex_;
  std::vector<const char*> calls_;
  std::map<std::string, std::size_t> counts_;
  std::set<std::size_t> fixed_;  ///< calls that cannot be failed
  std::map<Fault, platform::ErrorCode> faults_;
};

}  // namespace sim
