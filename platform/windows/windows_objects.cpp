#include "platform/windows/windows_objects.h"

#include "platform/windows/native.h"

namespace platform {

static_assert(kInfinite == INFINITE);
static_assert(kWaitObject0 == WAIT_OBJECT_0 && kWaitTimeout == WAIT_TIMEOUT && kWaitFailed == WAIT_FAILED);
static_assert(kHandleFlagInherit == HANDLE_FLAG_INHERIT);
static_assert(kErrorSuccess == ERROR_SUCCESS);
static_assert(kErrorFileNotFound == ERROR_FILE_NOT_FOUND && kErrorPathNotFound == ERROR_PATH_NOT_FOUND);
static_assert(kErrorAccessDenied == ERROR_ACCESS_DENIED && kErrorInvalidHandle == ERROR_INVALID_HANDLE);
static_assert(kErrorNotEnoughMemory == ERROR_NOT_ENOUGH_MEMORY && kErrorInvalidData == ERROR_INVALID_DATA);
static_assert(kErrorInvalidParameter == ERROR_INVALID_PARAMETER);
static_assert(kErrorInsufficientBuffer == ERROR_INSUFFICIENT_BUFFER);
static_assert(kErrorAlreadyExists == ERROR_ALREADY_EXISTS);

Result<KernelHandle> WindowsObjects::CreateEventW(bool manualReset, bool initialState) {
  const HANDLE event = ::CreateEventW(nullptr, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE, nullptr);
  const ErrorCode error = ::GetLastError();
  return {KernelHandleTraits::isValid(event), KernelHandle(event), error};
}

Status WindowsObjects::SetEvent(NativeHandle event) { return statusOf(::SetEvent(event)); }

Result<KernelHandle> WindowsObjects::CreateMutexW(bool initialOwner, const std::wstring& name) {
  const HANDLE mutex = ::CreateMutexW(nullptr, initialOwner ? TRUE : FALSE, name.c_str());
  const ErrorCode error = ::GetLastError();
  return {mutex != nullptr, KernelHandle(mutex), error};
}

Status WindowsObjects::ReleaseMutex(NativeHandle mutex) { return statusOf(::ReleaseMutex(mutex)); }

Result<std::uint32_t> WindowsObjects::WaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds) {
  const DWORD waited = ::WaitForSingleObject(handle, milliseconds);
  const ErrorCode error = ::GetLastError();
  return {waited != WAIT_FAILED, waited, error};
}

Result<std::uint32_t> WindowsObjects::WaitForMultipleObjects(std::span<const NativeHandle> handles, bool waitAll,
                                                             std::uint32_t milliseconds) {
  const DWORD waited =
      ::WaitForMultipleObjects(atMostDword(handles.size()), handles.data(), waitAll ? TRUE : FALSE, milliseconds);
  const ErrorCode error = ::GetLastError();
  return {waited != WAIT_FAILED, waited, error};
}

Status WindowsObjects::SetHandleInformation(NativeHandle handle, std::uint32_t mask, std::uint32_t flags) {
  return statusOf(::SetHandleInformation(handle, mask, flags));
}

Status WindowsObjects::CloseHandle(NativeHandle handle) { return statusOf(::CloseHandle(handle)); }

}  // namespace platform
