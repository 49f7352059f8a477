#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

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

/// The deleter of a Reference: gives the reference back instead of deleting the object.
template <class T>
struct ReleaseReference {
  void operator()(T* object) const {
    if (object != nullptr) {
      object->release();
    }
  }
};

/// Owns one reference to an object derived from coreref; releases it at its end. An object that was just made belongs
/// into one, which then owns the first reference.
template <class T>
using Reference = std::unique_ptr<T, ReleaseReference<T>>;

/// Adds a reference to the object and returns its owner.
template <class T>
Reference<T> addReference(T& object) {
  object.addRef();
  return Reference<T>(&object);
}

}  // namespace CORE
