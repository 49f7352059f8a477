#pragma once

#include "platform/objects.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsObjects final : public Objects {
 public:
  Result<KernelHandle> CreateEventW(bool manualReset, bool initialState) override;
  Status SetEvent(NativeHandle event) override;
  Result<KernelHandle> CreateMutexW(bool initialOwner, const std::wstring& name) override;
  Status ReleaseMutex(NativeHandle mutex) override;
  Result<std::uint32_t> WaitForSingleObject(NativeHandle handle, std::uint32_t milliseconds) override;
  Result<std::uint32_t> WaitForMultipleObjects(std::span<const NativeHandle> handles, bool waitAll,
                                               std::uint32_t milliseconds) override;
  Status SetHandleInformation(NativeHandle handle, std::uint32_t mask, std::uint32_t flags) override;
  Status CloseHandle(NativeHandle handle) override;
};

}  // namespace platform
