#pragma once

#include "platform/registry.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsRegistry final : public Registry {
 public:
  Result<RegistryKey> RegOpenKeyExW(RegistryRoot root, const std::wstring& path, std::uint32_t access) override;
  Result<RegistryKey> RegOpenKeyExW(NativeHandle key, const std::wstring& path, std::uint32_t access) override;
  Result<RegistryKey> RegOpenCurrentUser(std::uint32_t access) override;
  Result<RegistryValueInfo> RegQueryValueExW(NativeHandle key, const std::wstring& name,
                                             std::span<std::byte> buffer) override;
  Result<RegistryKey> RegCreateKeyExW(RegistryRoot root, const std::wstring& path, std::uint32_t access) override;
  Status RegSetValueExW(NativeHandle key, const std::wstring& name, std::uint32_t type,
                        std::span<const std::byte> data) override;
  void RegCloseKey(NativeHandle key) override;
};

}  // namespace platform
