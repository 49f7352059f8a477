#include "tests/sim/registry.h"

#include <algorithm>

#include "tests/sim/text.h"

namespace sim {
namespace {

struct ValuePath {
  std::wstring key;
  std::wstring name;
};

ValuePath split(const std::wstring& path) {
  const auto cut = path.rfind(L'\\');
  return {lowerCase(path.substr(0, cut)), lowerCase(path.substr(cut + 1))};
}

template <class T>
std::vector<std::byte> bytesOf(const T& value) {
  const auto bytes = std::as_bytes(std::span(&value, 1));
  return {bytes.begin(), bytes.end()};
}

}  // namespace

struct Registry::Key : Object {
  explicit Key(std::wstring keyPath) : path(std::move(keyPath)) {}
  const char* kind() const override { return "registry key"; }
  const std::wstring path;
};

std::vector<std::byte> utf16Bytes(const std::wstring& text, bool terminated) {
  std::vector<std::byte> bytes;
  const auto add = [&](std::uint32_t unit) {
    bytes.push_back(static_cast<std::byte>(unit & 0xFF));
    bytes.push_back(static_cast<std::byte>(unit >> 8 & 0xFF));
  };
  for (const wchar_t character : text) {
    const auto code = codeOf(character);
    if (code > 0xFFFF) {
      add(0xD800 + ((code - 0x10000) >> 10));
      add(0xDC00 + (code & 0x3FF));
    } else {
      add(code);
    }
  }
  if (terminated) {
    add(0);
  }
  return bytes;
}

void Registry::set(const std::wstring& path, const std::wstring& text) {
  setRaw(path, platform::kRegSz, utf16Bytes(text, true));
}

void Registry::set(const std::wstring& path, std::uint32_t dword) { setRaw(path, platform::kRegDword, bytesOf(dword)); }

void Registry::setExpandSz(const std::wstring& path, const std::wstring& text) {
  setRaw(path, platform::kRegExpandSz, utf16Bytes(text, true));
}

void Registry::setQword(const std::wstring& path, std::uint64_t qword) {
  setRaw(path, platform::kRegQword, bytesOf(qword));
}

void Registry::setUnterminated(const std::wstring& path, const std::wstring& text) {
  setRaw(path, platform::kRegSz, utf16Bytes(text, false));
}

void Registry::setRaw(const std::wstring& path, std::uint32_t type, std::vector<std::byte> bytes) {
  const Guard guard(kernel_.mutex);
  const ValuePath where = split(path);
  keys_[where.key][where.name] = Value{type, std::move(bytes)};
}

void Registry::makeKey(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  keys_[lowerCase(path)];
}

void Registry::eraseValue(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  const ValuePath where = split(path);
  keys_[where.key].erase(where.name);
}

void Registry::clear() {
  const Guard guard(kernel_.mutex);
  keys_.clear();
}

std::vector<Registry::Opening> Registry::openings() const {
  const Guard guard(kernel_.mutex);
  return openings_;
}

std::vector<std::wstring> Registry::queries() const {
  const Guard guard(kernel_.mutex);
  return queries_;
}

bool Registry::has(const std::wstring& path) const {
  const std::wstring key = lowerCase(path);
  const auto found = keys_.lower_bound(key);  // the key itself, or one below it
  return key.find(L'\\') == std::wstring::npos || keys_.contains(key) ||
         std::any_of(found, keys_.end(), [&](const auto& entry) { return entry.first.starts_with(key + L"\\"); });
}

platform::Result<platform::RegistryKey> Registry::open(const std::wstring& path, std::uint32_t access) {
  const bool found = has(path);
  openings_.push_back({path, access, found});
  if (!found) {
    return {false, {}, platform::kErrorFileNotFound};
  }
  return {true, platform::RegistryKey(kernel_.add(std::make_shared<Key>(path))), 0};
}

platform::Result<platform::RegistryKey> Registry::RegOpenKeyExW(platform::RegistryRoot root, const std::wstring& path,
                                                                std::uint32_t access) {
  if (const auto error = kernel_.faults.pass("RegOpenKeyExW")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  const std::wstring hive = root == platform::RegistryRoot::kCurrentUser ? L"HKCU" : L"HKLM";
  return open(path.empty() ? hive : hive + L"\\" + path, access);
}

platform::Result<platform::RegistryKey> Registry::RegOpenKeyExW(platform::NativeHandle key, const std::wstring& path,
                                                                std::uint32_t access) {
  if (const auto error = kernel_.faults.pass("RegOpenKeyExW")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto parent = kernel_.get<Key>(key, "RegOpenKeyExW");
  if (parent == nullptr) {
    return {false, {}, platform::kErrorInvalidHandle};
  }
  return open(path.empty() ? parent->path : parent->path + L"\\" + path, access);
}

platform::Result<platform::RegistryKey> Registry::RegOpenCurrentUser(std::uint32_t access) {
  if (const auto error = kernel_.faults.pass("RegOpenCurrentUser")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  return open(L"HKCU", access);
}

platform::Result<platform::RegistryValueInfo> Registry::RegQueryValueExW(platform::NativeHandle key,
                                                                         const std::wstring& name,
                                                                         std::span<std::byte> buffer) {
  if (const auto error = kernel_.faults.pass("RegQueryValueExW")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<Key>(key, "RegQueryValueExW");
  if (object == nullptr) {
    return {false, {}, platform::kErrorInvalidHandle};
  }
  queries_.push_back(object->path + L"\\" + name);
  const auto& values = keys_[lowerCase(object->path)];
  const auto found = values.find(lowerCase(name));
  if (found == values.end()) {
    return {false, {}, platform::kErrorFileNotFound};
  }
  const Value& value = found->second;
  const platform::RegistryValueInfo info{value.type, static_cast<std::uint32_t>(value.bytes.size())};
  if (!buffer.empty() && buffer.size() < value.bytes.size()) {
    return {false, info, platform::kErrorMoreData};
  }
  if (!buffer.empty()) {
    std::copy(value.bytes.begin(), value.bytes.end(), buffer.begin());
  }
  return {true, info, 0};
}

void Registry::RegCloseKey(platform::NativeHandle key) {
  kernel_.faults.note("RegCloseKey");
  const Guard guard(kernel_.mutex);
  kernel_.take<Key>(key, "RegCloseKey");
}

}  // namespace sim
