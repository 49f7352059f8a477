#include "platform/windows/windows_registry.h"

#include "platform/windows/native.h"

namespace platform {

static_assert(kKeyQueryValue == KEY_QUERY_VALUE && kKeySetValue == KEY_SET_VALUE);
static_assert(kKeyWow64_64Key == KEY_WOW64_64KEY);
static_assert(kRegSz == REG_SZ && kRegExpandSz == REG_EXPAND_SZ && kRegDword == REG_DWORD);
static_assert(kRegMultiSz == REG_MULTI_SZ && kRegQword == REG_QWORD);
static_assert(kErrorMoreData == ERROR_MORE_DATA);

namespace {

HKEY asKey(NativeHandle key) { return static_cast<HKEY>(key); }

HKEY asKey(RegistryRoot root) { return root == RegistryRoot::kCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE; }

Result<RegistryKey> openKey(HKEY parent, const std::wstring& path, std::uint32_t access) {
  HKEY key = nullptr;
  const LSTATUS status = ::RegOpenKeyExW(parent, path.c_str(), 0, access, &key);
  return {status == ERROR_SUCCESS, RegistryKey(key), static_cast<ErrorCode>(status)};
}

}  // namespace

Result<RegistryKey> WindowsRegistry::RegOpenKeyExW(RegistryRoot root, const std::wstring& path, std::uint32_t access) {
  return openKey(asKey(root), path, access);
}

Result<RegistryKey> WindowsRegistry::RegOpenKeyExW(NativeHandle key, const std::wstring& path, std::uint32_t access) {
  return openKey(asKey(key), path, access);
}

Result<RegistryKey> WindowsRegistry::RegOpenCurrentUser(std::uint32_t access) {
  HKEY key = nullptr;
  const LSTATUS status = ::RegOpenCurrentUser(access, &key);
  return {status == ERROR_SUCCESS, RegistryKey(key), static_cast<ErrorCode>(status)};
}

Result<RegistryValueInfo> WindowsRegistry::RegQueryValueExW(NativeHandle key, const std::wstring& name,
                                                            std::span<std::byte> buffer) {
  DWORD type = 0;
  DWORD size = atMostDword(buffer.size());
  BYTE* const data = buffer.empty() ? nullptr : reinterpret_cast<BYTE*>(buffer.data());
  const LSTATUS status = ::RegQueryValueExW(asKey(key), name.c_str(), nullptr, &type, data, &size);
  const bool isReported = status == ERROR_SUCCESS || status == ERROR_MORE_DATA;
  return {status == ERROR_SUCCESS, isReported ? RegistryValueInfo{type, size} : RegistryValueInfo{},
          static_cast<ErrorCode>(status)};
}

Result<RegistryKey> WindowsRegistry::RegCreateKeyExW(RegistryRoot root, const std::wstring& path,
                                                     std::uint32_t access) {
  HKEY key = nullptr;
  const LSTATUS status =
      ::RegCreateKeyExW(asKey(root), path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr, &key, nullptr);
  return {status == ERROR_SUCCESS, RegistryKey(key), static_cast<ErrorCode>(status)};
}

Status WindowsRegistry::RegSetValueExW(NativeHandle key, const std::wstring& name, std::uint32_t type,
                                       std::span<const std::byte> data) {
  if (!fitsDword(data.size())) {
    return {false, kErrorInvalidParameter};
  }
  const LSTATUS status = ::RegSetValueExW(asKey(key), name.c_str(), 0, type, reinterpret_cast<const BYTE*>(data.data()),
                                          static_cast<DWORD>(data.size()));
  return {status == ERROR_SUCCESS, static_cast<ErrorCode>(status)};
}

void WindowsRegistry::RegCloseKey(NativeHandle key) { ::RegCloseKey(asKey(key)); }

}  // namespace platform
