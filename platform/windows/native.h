#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

// What the neutral headers assume about the Windows types that pass through them unchanged.
static_assert(sizeof(wchar_t) == 2, "texts go to the platform as UTF-16");
static_assert(sizeof(void*) == 8, "record sizes and layouts are those of 64-bit Windows");
static_assert(std::is_same_v<HANDLE, NativeHandle>);
static_assert(sizeof(DWORD) == sizeof(ErrorCode) && std::is_unsigned_v<DWORD>);

/// Returns the status of a call that reports success as a BOOL. Pass the call itself, statusOf(::SetEvent(event)): then
/// nothing runs between it and the reading of the thread's last error.
inline Status statusOf(BOOL succeeded) {
  const ErrorCode error = ::GetLastError();
  return {succeeded != FALSE, error};
}

/// Returns the result of such a call that writes `value`, which is dropped when the call failed.
template <class T>
Result<T> resultOf(BOOL succeeded, const T& value) {
  const ErrorCode error = ::GetLastError();
  return {succeeded != FALSE, succeeded != FALSE ? value : T{}, error};
}

/// Whether a length fits the 32 bits that the platform's calls take.
inline bool fitsDword(std::size_t length) { return length <= std::numeric_limits<DWORD>::max(); }

/// Returns a length in 32 bits for a call that may process less than it is asked to, and reports how much it did.
inline DWORD atMostDword(std::size_t length) {
  return fitsDword(length) ? static_cast<DWORD>(length) : std::numeric_limits<DWORD>::max();
}

}  // namespace platform
