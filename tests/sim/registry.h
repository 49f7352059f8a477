#pragma once

#include <optional>

#include "platform/registry.h"
#include "tests/sim/kernel.h"
#include "tests/sim/text.h"

namespace sim {

/// Returns a text as the registry stores it: UTF-16LE bytes, with or without a terminator.
inline std::vector<std::byte> utf16Bytes(const std::wstring& text, bool terminated) {
  std::vector<std::byte> bytes;
  const auto add = [&](std::uint32_t unit) {
    bytes.push_back(static_cast<std::byte>(unit & 0xFF));
    bytes.push_back(static_cast<std::byte>(unit >> 8 & 0xFF));
  };
  for (const wchar_t character : text) {
    const auto code = codeOf(character);
    if (code > 0xFFFF) {
      add(0xD800 + ((code - 0x10000) >> 10));
    }
    add(code > 0xFFFF ? 0xDC00 + (code & 0x3FF) : code);
  }
  if (terminated) {
    add(0);
  }
  return bytes;
}

/// The registry. Paths begin with "HKLM\" or "HKCU\" and compare without case; the part behind the last "\" is the
/// value's name.
class Registry : public platform::Registry {
 public:
  explicit Registry(Kernel& kernel) : kernel_(kernel) {}

  void setRaw(const std::wstring& path, std::uint32_t type, std::vector<std::byte> bytes) {
    const Guard guard(kernel_.mutex);
    values_[lowerCase(path)] = Value{type, std::move(bytes)};
  }
  void set(const std::wstring& path, const std::wstring& text) { setRaw(path, kRegSz, utf16Bytes(text, true)); }
  void set(const std::wstring& path, std::uint32_t dword) {
    const auto bytes = std::as_bytes(std::span(&dword, 1));
    setRaw(path, kRegDword, {bytes.begin(), bytes.end()});
  }
  void eraseValue(const std::wstring& path) {
    const Guard guard(kernel_.mutex);
    values_[lowerCase(path)].reset();  // its key stays
  }
  void clear() {
    const Guard guard(kernel_.mutex);
    values_.clear();
  }

  /// Returns the rights of access that the latest RegOpenKeyExW or RegOpenCurrentUser asked for.
  std::uint32_t latestAccess() const { return kernel_.copyOf(latestAccess_); }

  Result<RegistryKey> RegOpenKeyExW(RegistryRoot root, const std::wstring& path, std::uint32_t access) override {
    return kernel_.call(__func__, [&] { return open(keyBelow(hiveOf(root), path), access); });
  }
  Result<RegistryKey> RegOpenKeyExW(NativeHandle key, const std::wstring& path, std::uint32_t access) override {
    return kernel_.callOn<Key>(__func__, key, [&](Key& parent) { return open(keyBelow(parent.path, path), access); });
  }
  Result<RegistryKey> RegOpenCurrentUser(std::uint32_t access) override {
    return kernel_.call(__func__, [&] { return open(L"HKCU", access); });
  }
  Result<RegistryValueInfo> RegQueryValueExW(NativeHandle key, const std::wstring& name,
                                             std::span<std::byte> buffer) override {
    return kernel_.callOn<Key>(__func__, key, [&](Key& object) -> Result<RegistryValueInfo> {
      const auto found = values_.find(lowerCase(object.path + L"\\" + name));
      if (found == values_.end() || !found->second) {
        return Failure{kErrorFileNotFound};
      }
      const auto& [type, bytes] = *found->second;
      const bool fits = buffer.empty() || buffer.size() >= bytes.size();
      std::copy_n(bytes.begin(), fits ? std::min(buffer.size(), bytes.size()) : 0, buffer.begin());
      return {fits, {type, static_cast<std::uint32_t>(bytes.size())}, fits ? 0 : kErrorMoreData};
    });
  }
  Result<RegistryKey> RegCreateKeyExW(RegistryRoot root, const std::wstring& path, std::uint32_t access) override {
    return kernel_.call(__func__, [&] {
      values_.try_emplace(lowerCase(hiveOf(root) + L"\\" + path + L"\\"));
      return open(hiveOf(root) + L"\\" + path, access);
    });
  }
  Status RegSetValueExW(NativeHandle key, const std::wstring& name, std::uint32_t type,
                        std::span<const std::byte> data) override {
    return kernel_.callOn<Key>(__func__, key, [&](Key& object) {
      refuseIf((object.access & kKeySetValue) == 0, kErrorAccessDenied);
      values_[lowerCase(object.path + L"\\" + name)] = Value{type, {data.begin(), data.end()}};
    });
  }
  void RegCloseKey(NativeHandle key) override { kernel_.close<Key>(__func__, key); }

 private:
  struct Key : Object {
    Key(std::wstring keyPath, std::uint32_t rights) : path(std::move(keyPath)), access(rights) {}
    const char* kind() const override { return "registry key"; }
    const std::wstring path;
    const std::uint32_t access;
  };
  struct Value {
    std::uint32_t type = 0;
    std::vector<std::byte> bytes;
  };
  static std::wstring hiveOf(RegistryRoot root) { return root == RegistryRoot::kCurrentUser ? L"HKCU" : L"HKLM"; }
  /// The empty path names the key itself.
  static std::wstring keyBelow(const std::wstring& key, const std::wstring& path) {
    return path.empty() ? key : key + L"\\" + path;
  }
  Result<RegistryKey> open(const std::wstring& path, std::uint32_t access) {
    latestAccess_ = access;
    const std::wstring below = lowerCase(path) + L"\\";
    const auto next = values_.lower_bound(below);
    if (path != L"HKCU" && (next == values_.end() || !next->first.starts_with(below))) {
      return Failure{kErrorFileNotFound};
    }
    return {true, kernel_.opened<RegistryKey>(std::make_shared<Key>(path, access)), 0};
  }

  Kernel& kernel_;
  std::map<std::wstring, std::optional<Value>> values_;  ///< by path in lower case; no value: erased
  std::uint32_t latestAccess_ = 0;
};

}  // namespace sim
