#pragma once

#include <cstdint>
#include <utility>

namespace platform {

/// A Win32 error number as GetLastError reports it; 0 is success.
using ErrorCode = std::uint32_t;

inline constexpr ErrorCode kErrorSuccess = 0;
inline constexpr ErrorCode kErrorFileNotFound = 2;
inline constexpr ErrorCode kErrorPathNotFound = 3;
inline constexpr ErrorCode kErrorAccessDenied = 5;
inline constexpr ErrorCode kErrorInvalidHandle = 6;
inline constexpr ErrorCode kErrorNotEnoughMemory = 8;
inline constexpr ErrorCode kErrorInvalidData = 13;
inline constexpr ErrorCode kErrorInvalidParameter = 87;
inline constexpr ErrorCode kErrorBrokenPipe = 109;
inline constexpr ErrorCode kErrorInsufficientBuffer = 122;
inline constexpr ErrorCode kErrorAlreadyExists = 183;
inline constexpr ErrorCode kErrorMoreData = 234;

/// The result of one platform call. Where an operation says what it returns, it means `value`.
///
/// `ok` is the call's success as its documentation defines it, `value` its output (the default value when it failed),
/// and `error` the thread's last error, read right after the call. `error` is filled on success too, because some calls
/// succeed and leave an error that matters (CreateMutexW leaves ERROR_ALREADY_EXISTS).
template <class T>
struct Result {
  bool ok = false;
  T value{};
  ErrorCode error = kErrorSuccess;

  explicit operator bool() const { return ok; }
};

/// The result of a platform call that has no output.
struct Status {
  bool ok = false;
  ErrorCode error = kErrorSuccess;

  explicit operator bool() const { return ok; }
};

}  // namespace platform
