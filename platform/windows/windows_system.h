#pragma once

#include "platform/system.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsSystem final : public System {
 public:
  Status SetDefaultDllDirectories(std::uint32_t flags) override;
  Result<std::wstring> GetSystemDirectoryW() override;
  Status SetCurrentDirectoryW(const std::wstring& path) override;
  Result<std::wstring> GetModuleFileNameW() override;
  NativeHandle GetModuleHandleW(const std::wstring& name) override;
};

}  // namespace platform
