#include "tests/sim/faults.h"

namespace sim {

void Faults::failNth(const std::string& name, std::size_t n, platform::ErrorCode error) {
  const std::lock_guard lock(mutex_);
  nth_[name][counts_[name] + n] = error;
}

void Faults::failAll(const std::string& name, platform::ErrorCode error) {
  const std::lock_guard lock(mutex_);
  all_[name] = error;
}

void Faults::failCall(std::size_t k, platform::ErrorCode error) {
  const std::lock_guard lock(mutex_);
  kth_[k] = error;
}

void Faults::clear() {
  const std::lock_guard lock(mutex_);
  nth_.clear();
  all_.clear();
  kth_.clear();
}

std::size_t Faults::callCount(const std::string& name) const {
  const std::lock_guard lock(mutex_);
  const auto found = counts_.find(name);
  return found == counts_.end() ? 0 : found->second;
}

std::vector<std::string> Faults::calls() const {
  const std::lock_guard lock(mutex_);
  return {calls_.begin(), calls_.end()};
}

std::size_t Faults::fired() const {
  const std::lock_guard lock(mutex_);
  return fired_;
}

std::optional<platform::ErrorCode> Faults::pass(const char* name) {
  const std::lock_guard lock(mutex_);
  calls_.push_back(name);
  const std::size_t count = ++counts_[name];
  std::optional<platform::ErrorCode> error;
  if (const auto found = all_.find(name); found != all_.end()) {
    error = found->second;
  }
  if (const auto found = nth_.find(name); found != nth_.end() && found->second.contains(count)) {
    error = found->second.at(count);
  }
  if (const auto found = kth_.find(calls_.size()); found != kth_.end()) {
    error = found->second;
  }
  fired_ += error ? 1u : 0u;
  return error;
}

void Faults::note(const char* name) {
  const std::lock_guard lock(mutex_);
  calls_.push_back(name);
  ++counts_[name];
}

}  // namespace sim
