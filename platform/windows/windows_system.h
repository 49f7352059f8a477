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
  Result<std::uint32_t> GetFileVersionInfoSizeW(const std::wstring& path) override;
  Status GetFileVersionInfoW(const std::wstring& path, std::span<std::byte> block) override;
  Result<std::span<const std::byte>> VerQueryValueW(std::span<const std::byte> block,
                                                    const std::wstring& name) override;
  Status AttachConsole() override;
  Status WriteConsoleW(NativeHandle console, const std::wstring& text) override;
};

}  // namespace platform
