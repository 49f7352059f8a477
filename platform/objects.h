#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;    ///< INFINITE, milliseconds
inline constexpr std::uint32_t kWaitObject0 = 0;          ///< WAIT_OBJECT_0
inline constexpr std::uint32_t kWaitTimeout = 258;        ///< WAIT_TIMEOUT
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;  ///< WAIT_FAILED
inline constexpr std::uint32_t kHandleFlagInherit = 0x1;  ///< HANDLE_FLAG_INHERIT

/// Kernel objects: events, mutexes, waits. Every operation is one platform call of that name; any thread may call.
class Objects {
 public:
  virtual ~Objects() = default;

  /// Makes an event without name and security attributes.
  /// \return ok when the handle is neither null nor INVALID_HANDLE_VALUE.
  virtual Result<KernelHandle> CreateEventW(bool manualReset, bool initialState) = 0;
  virtual Status SetEvent(NativeHandle event) = 0;

  /// Makes or opens a mutex.
  /// \return ok when the handle is not null. `error` is the last error in either case: kErrorAlreadyExists comes with a
  ///         handle.
  virtual Result<KernelHandle> CreateMutexW(bool initialOwner, const std::wstring& name) = 0;
  virtual Status ReleaseMutex(NativeHandle mutex) = 0;

  /// Waits until the handle is signalled or the time is over.
  /// \return the wait result: kWaitObject0, kWaitTimeout or kWaitFailed; ok when it is not kWaitFailed.
  virtual Result<std::uint32_t> WaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds) = 0;
  /// Waits as WaitForSingleObject does; the result of a signalled handle is kWaitObject0 plus its index.
  virtual Result<std::uint32_t> WaitForMultipleObjects(std::span<const NativeHandle> handles, bool waitAll,
                                                       std::uint32_t milliseconds) = 0;

  virtual Status SetHandleInformation(NativeHandle handle, std::uint32_t mask, std::uint32_t flags) = 0;
  virtual Status CloseHandle(NativeHandle handle) = 0;
};

}  // namespace platform
