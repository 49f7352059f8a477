#pragma once

#include <atomic>
#include <cstdint>

namespace CORE {

/// Base of reference-counted objects. The count is 1 after construction; the release that brings it to 0 deletes the
/// object. The three operations may be called on any thread.
class coreref {
 public:
  coreref() = default;
  coreref(const coreref&) = delete;
  coreref& operator=(const coreref&) = delete;

  virtual void addRef() { count_.fetch_add(1, std::memory_order_relaxed); }
  virtual void release() {
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete this;
    }
  }
  virtual std::uint32_t refCount() const { return count_.load(std::memory_order_acquire); }

 protected:
  virtual ~coreref() = default;

 private:
  std::atomic<std::uint32_t> count_{1};
};

}  // namespace CORE
