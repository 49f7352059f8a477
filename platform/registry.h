#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

// Rights of access to a key.
inline constexpr std::uint32_t kKeyQueryValue = 0x0001;   ///< KEY_QUERY_VALUE
inline constexpr std::uint32_t kKeySetValue = 0x0002;     ///< KEY_SET_VALUE
inline constexpr std::uint32_t kKeyWow64_64Key = 0x0100;  ///< KEY_WOW64_64KEY: the 64-bit view

// Types of a value.
inline constexpr std::uint32_t kRegSz = 1;        ///< REG_SZ
inline constexpr std::uint32_t kRegExpandSz = 2;  ///< REG_EXPAND_SZ
inline constexpr std::uint32_t kRegDword = 4;     ///< REG_DWORD
inline constexpr std::uint32_t kRegMultiSz = 7;   ///< REG_MULTI_SZ
inline constexpr std::uint32_t kRegQword = 11;    ///< REG_QWORD

/// The predefined keys that the program uses.
enum class RegistryRoot : std::uint8_t {
  kCurrentUser,   ///< HKEY_CURRENT_USER
  kLocalMachine,  ///< HKEY_LOCAL_MACHINE
};

void closeRegistryKey(NativeHandle key);

/// Owner of an open registry key, closed with RegCloseKey.
using RegistryKey = UniqueHandle<NullHandleTraits<NativeHandle, closeRegistryKey>>;

/// What RegQueryValueExW reports about a value.
struct RegistryValueInfo {
  std::uint32_t type = 0;
  std::uint32_t size = 0;  ///< of its data, in bytes; also when the buffer is too small (kErrorMoreData)
};

/// The registry. Every operation is one platform call of that name, and `error` is the status that the call returns.
/// Any thread may call.
class Registry {
 public:
  virtual ~Registry() = default;

  virtual Result<RegistryKey> RegOpenKeyExW(RegistryRoot root, const std::wstring& path, std::uint32_t access) = 0;
  /// Opens a key below one that is open already (the hive of RegOpenCurrentUser).
  virtual Result<RegistryKey> RegOpenKeyExW(NativeHandle key, const std::wstring& path, std::uint32_t access) = 0;
  /// Opens the hive of the user whom the calling thread impersonates.
  virtual Result<RegistryKey> RegOpenCurrentUser(std::uint32_t access) = 0;
  /// Reads a value. With an empty buffer the call only reports the type and the size, and succeeds; with a buffer that
  /// is too small it fails with kErrorMoreData and reports the size needed. A string is UTF-16LE as it is stored, with
  /// or without a terminator.
  virtual Result<RegistryValueInfo> RegQueryValueExW(NativeHandle key, const std::wstring& name,
                                                     std::span<std::byte> buffer) = 0;
  /// Opens a key, or makes it and every missing key above it. The key is not volatile and has no security attributes.
  virtual Result<RegistryKey> RegCreateKeyExW(RegistryRoot root, const std::wstring& path, std::uint32_t access) = 0;
  virtual Status RegSetValueExW(NativeHandle key, const std::wstring& name, std::uint32_t type,
                                std::span<const std::byte> data) = 0;
  virtual void RegCloseKey(NativeHandle key) = 0;
};

}  // namespace platform
