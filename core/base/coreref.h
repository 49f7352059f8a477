#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace CORE {

/// Base of the framework's reference-counted objects. The count is 1 after construction; the release that makes it 0
/// deletes the object. Any thread may call the three operations. (core/base/counted.h counts the references of objects
/// without virtual operations.)
///
/// kept: the destructor and the three operations are virtual and stand in this order, which is that of the table of
/// virtual functions.
class coreref {
 protected:
  virtual ~coreref() = default;

 public:
  coreref() = default;
  coreref(const coreref&) = delete;
  coreref& operator=(const coreref&) = delete;

  virtual void addRef() { count_.fetch_add(1, std::memory_order_relaxed); }
  virtual void release() {
    // Acquire and release: what every other owner did to the object happens before its destructor.
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      delete this;
    }
  }
  /// kept: nothing in the program reads the count.
  virtual std::uint32_t refCount() const { return count_.load(std::memory_order_acquire); }

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
