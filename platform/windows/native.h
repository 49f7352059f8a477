#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

// What the neutral headers take for granted about every Windows type that passes through them as it is.
static_assert(sizeof(wchar_t) == 2, "texts go to the platform as UTF-16");
static_assert(sizeof(void*) == 8, "record sizes and layouts are those of 64-bit Windows");
static_assert(std::is_same_v<HANDLE, NativeHandle>);
static_assert(sizeof(DWORD) == sizeof(ErrorCode) && std::is_unsigned_v<DWORD>);

/// The status of a call that tells success by BOOL. Nothing stands between the call and this one's reading of the
/// thread's last error: statusOf(::SetEvent(event)).
inline Status statusOf(BOOL succeeded) {
  const ErrorCode error = ::GetLastError();
  return {succeeded != FALSE, error};
}

/// As statusOf, for a call that wrote `value`; the value is dropped when the call failed.
template <class T>
Result<T> resultOf(BOOL succeeded, const T& value) {
  const ErrorCode error = ::GetLastError();
  return {succeeded != FALSE, succeeded != FALSE ? value : T{}, error};
}

/// Whether a length fits the 32 bits that the platform's calls take.
inline bool fitsDword(std::size_t length) { return length <= std::numeric_limits<DWORD>::max(); }

/// A length for a call that may do less than asked and says how much it did.
inline DWORD atMostDword(std::size_t length) {
  return fitsDword(length) ? static_cast<DWORD>(length) : std::numeric_limits<DWORD>::max();
}

}  // namespace platform
