#include "http/inflight_table.h"

#include <utility>

InflightTable& InflightTable::instance() {
  static auto* const table = new InflightTable;
  return *table;
}

std::uintptr_t InflightTable::add(std::shared_ptr<WinHttpRequest> request) {
  const CORE::MutexLock lock(mutex_);
  const std::uintptr_t number = last_ + 1;
  requests_.emplace(number, std::move(request));
  last_ = number;
  return number;
}

std::shared_ptr<WinHttpRequest> InflightTable::find(std::uintptr_t number) {
  const CORE::MutexLock lock(mutex_);
  const auto at = requests_.find(number);
  return at == requests_.end() ? nullptr : at->second;
}

std::shared_ptr<WinHttpRequest> InflightTable::take(std::uintptr_t number) {
  const CORE::MutexLock lock(mutex_);
  const auto at = requests_.find(number);
  if (at == requests_.end()) {
    return nullptr;
  }
  auto request = std::move(at->second);
  requests_.erase(at);
  return request;
}
