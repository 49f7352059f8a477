#pragma once

#include <cstdint>
#include <utility>

namespace platform {

/// A platform handle by its bit pattern. The library above the seam never looks into it.
using NativeHandle = void*;

/// INVALID_HANDLE_VALUE.
inline NativeHandle invalidHandleValue() { return reinterpret_cast<NativeHandle>(static_cast<std::intptr_t>(-1)); }

/// Move-only owner of one handle; closes it when it goes.
///
/// Traits give `Type`, `Type invalid()`, `bool isValid(Type)` and `void close(Type)`. Closing goes through the
/// installed platform. An owner is used by one thread at a time.
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

  /// Gives the handle up without closing it.
  [[nodiscard]] Type release() { return std::exchange(handle_, Traits::invalid()); }

  /// Closes the handle held (when it is a valid one) and takes the new one.
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

/// Traits of a kernel handle: both null and INVALID_HANDLE_VALUE mean "none"; closed by CloseHandle.
struct KernelHandleTraits {
  using Type = NativeHandle;
  static Type invalid() { return nullptr; }
  static bool isValid(Type handle) { return handle != nullptr && handle != invalidHandleValue(); }
  static void close(Type handle);
};

/// Owner of an event, mutex, process, thread, pipe end, file, job or token.
using KernelHandle = UniqueHandle<KernelHandleTraits>;

}  // namespace platform
