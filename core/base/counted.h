#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace CORE {

/// Base of reference-counted objects without virtual operations. The count is 1 after construction. Any thread.
class Counted {
 public:
  Counted() = default;
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  void addRef() noexcept { count_.fetch_add(1, std::memory_order_relaxed); }
  /// Drops a reference. Returns true when it was the last one: then the caller destroys the object.
  [[nodiscard]] bool dropRef() noexcept { return count_.fetch_sub(1, std::memory_order_acq_rel) == 1; }

 protected:
  ~Counted() = default;

 private:
  std::atomic<std::uint32_t> count_{1};
};

/// Shares the ownership of a Counted object. The last owner calls T::destroy(object). One thread at a time uses an
/// owner.
template <class T>
class CountedPtr {
 public:
  CountedPtr() = default;
  /// Takes over one reference.
  explicit CountedPtr(T* adopted) noexcept : object_(adopted) {}
  CountedPtr(const CountedPtr& other) noexcept : object_(other.object_) {
    if (object_ != nullptr) {
      object_->addRef();
    }
  }
  CountedPtr(CountedPtr&& other) noexcept : object_(other.release()) {}
  CountedPtr& operator=(CountedPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~CountedPtr() {
    if (object_ != nullptr && object_->dropRef()) {
      T::destroy(object_);
    }
  }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  /// Returns the object and no longer owns its reference, which the caller has to drop.
  [[nodiscard]] T* release() noexcept { return std::exchange(object_, nullptr); }

 private:
  T* object_ = nullptr;
};

}  // namespace CORE
