#pragma once

#include <map>

#include "platform/registry.h"
#include "tests/sim/kernel.h"

namespace sim {

/// The registry. Paths begin with "HKLM\" or "HKCU\" and compare without case; the part behind the last "\" is the
/// value's name.
class Registry : public platform::Registry {
 public:
  explicit Registry(Kernel& kernel) : kernel_(kernel) {}

  /// One RegOpenKeyExW or RegOpenCurrentUser.
  struct Opening {
    std::wstring path;
    std::uint32_t access = 0;
    bool ok = false;
  };

  void set(const std::wstring& path, const std::wstring& text);  ///< REG_SZ, with its terminator
  void set(const std::wstring& path, const wchar_t* text) { set(path, std::wstring(text)); }
  void set(const std::wstring& path, std::uint32_t dword);  ///< REG_DWORD
  void setExpandSz(const std::wstring& path, const std::wstring& text);
  void setQword(const std::wstring& path, std::uint64_t qword);
  void setUnterminated(const std::wstring& path, const std::wstring& text);  ///< REG_SZ without terminator
  void setRaw(const std::wstring& path, std::uint32_t type, std::vector<std::byte> bytes);
  void makeKey(const std::wstring& path);
  void eraseValue(const std::wstring& path);
  void clear();

  std::vector<Opening> openings() const;
  /// Full paths of the values asked for, found or not, in order.
  std::vector<std::wstring> queries() const;

  platform::Result<platform::RegistryKey> RegOpenKeyExW(platform::RegistryRoot root, const std::wstring& path,
                                                        std::uint32_t access) override;
  platform::Result<platform::RegistryKey> RegOpenKeyExW(platform::NativeHandle key, const std::wstring& path,
                                                        std::uint32_t access) override;
  platform::Result<platform::RegistryKey> RegOpenCurrentUser(std::uint32_t access) override;
  platform::Result<platform::RegistryValueInfo> RegQueryValueExW(platform::NativeHandle key, const std::wstring& name,
                                                                 std::span<std::byte> buffer) override;
  void RegCloseKey(platform::NativeHandle key) override;

 private:
  struct Key;
  struct Value {
    std::uint32_t type = 0;
    std::vector<std::byte> bytes;
  };
  bool has(const std::wstring& path) const;
  platform::Result<platform::RegistryKey> open(const std::wstring& path, std::uint32_t access);

  Kernel& kernel_;
  std::map<std::wstring, std::map<std::wstring, Value>> keys_;  ///< lower-cased
  std::vector<Opening> openings_;
  std::vector<std::wstring> queries_;
};

/// A text as the platform stores it: UTF-16LE bytes, with a terminator when asked.
std::vector<std::byte> utf16Bytes(const std::wstring& text, bool terminated);

}  // namespace sim
