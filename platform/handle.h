#pragma once

#include <cstdint>
#include <utility>

namespace platform {

/// A platform handle by its bit pattern. The code above this layer never looks into it.
using NativeHandle = void*;

/// Returns INVALID_HANDLE_VALUE.
inline NativeHandle invalidHandleValue() { return reinterpret_cast<NativeHandle>(static_cast<std::intptr_t>(-1)); }

/// Owns one handle and closes it in its destructor. It can be moved, not copied. One thread at a time uses an owner.
///
/// The traits define `Type`, `Type invalid()`, `bool isValid(Type)` and `void close(Type)`; close() calls the installed
/// platform.
template <class Traits>
class UniqueHandle {
 public:
  using Type = typename Traits::Type;

  UniqueHandle() = default;
  explicit UniqueHandle(Type handle) : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { reset(); }

  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) {
      reset(other.release());
    }
    return *this;
  }

  Type get() const { return handle_; }
  explicit operator bool() const { return Traits::isValid(handle_); }

  /// Returns the handle and no longer owns it; the caller has to close it.
  [[nodiscard]] Type release() { return std::exchange(handle_, Traits::invalid()); }

  /// Takes over another handle and closes the one that it owned, if that is valid.
  void reset(Type handle = Traits::invalid()) {
    const Type old = std::exchange(handle_, handle);
    if (Traits::isValid(old)) {
      Traits::close(old);
    }
  }

 private:
  Type handle_ = Traits::invalid();
};

/// Traits of a handle whose only invalid value is null, closed by `Close`.
template <class T, void (*Close)(T)>
struct NullHandleTraits {
  using Type = T;
  static Type invalid() { return nullptr; }
  static bool isValid(Type handle) { return handle != nullptr; }
  static void close(Type handle) { Close(handle); }
};

/// Traits of a kernel handle, which CloseHandle closes. Both null and INVALID_HANDLE_VALUE mean "none".
struct KernelHandleTraits {
  using Type = NativeHandle;
  static Type invalid() { return nullptr; }
  static bool isValid(Type handle) { return handle != nullptr && handle != invalidHandleValue(); }
  static void close(Type handle);
};

/// Owner of an event, a mutex, a process, a thread, an end of a pipe, a file, a job or a token.
using KernelHandle = UniqueHandle<KernelHandleTraits>;

}  // namespace platform
