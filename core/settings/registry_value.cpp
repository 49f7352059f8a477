#include "core/settings/registry_value.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "core/base/memory_guard.h"
#include "core/base/unicode.h"
#include "core/format/format.h"
#include "core/settings/environment.h"
#include "core/text/text.h"
#include "platform/platform.h"

namespace CORE {
namespace {

using platform::RegistryRoot;

// A value may grow between the call that asks for its size and the call that reads it, again and again.
constexpr int kMaxAttempts = 4;

std::uint32_t readAccess(bool view64) { return platform::kKeyQueryValue | (view64 ? platform::kKeyWow64_64Key : 0); }

struct RawValue {
  std::uint32_t type = 0;
  std::vector<std::byte> data;
};

std::optional<RawValue> readRaw(platform::NativeHandle key, const std::wstring& name) {
  platform::Registry& registry = platform::current().registry;
  auto info = registry.RegQueryValueExW(key, name, {});
  if (!info) {
    return std::nullopt;
  }
  RawValue out;
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    out.data.assign(info.value.size, std::byte{});
    const std::size_t room = out.data.size();
    info = registry.RegQueryValueExW(key, name, out.data);
    if (info && info.value.size <= room) {
      out.type = info.value.type;
      out.data.resize(info.value.size);
      return out;
    }
    // A call with an empty buffer only asks for the size. So a value that was empty and has grown since arrives here
    // without an error, and is read again.
    if (!info && info.error != platform::kErrorMoreData) {
      break;
    }
  }
  return std::nullopt;
}

/// Returns the little-endian number of the first `count` bytes. Bytes that the value does not have count as zero.
std::uint64_t numberOf(std::span<const std::byte> data, std::size_t count) {
  std::uint64_t out = 0;
  for (std::size_t i = 0; i < count && i < data.size(); ++i) {
    out |= std::to_integer<std::uint64_t>(data[i]) << (8 * i);
  }
  return out;
}

std::wstring textOf(const RawValue& value) {
  if (value.type == platform::kRegDword) {
    return format(L"%u", numberOf(value.data, 4));
  }
  if (value.type == platform::kRegQword) {
    return format(L"%llu", numberOf(value.data, 8));
  }
  std::wstring text = fromUtf16Bytes(value.data);
  const bool expandable = value.type == platform::kRegExpandSz;
  if ((expandable || value.type == platform::kRegSz) && !text.empty() && text.back() == L'\0') {
    text.pop_back();
  }
  if (expandable && !text.empty()) {
    if (auto expanded = expandEnvironment(text)) {
      return std::move(*expanded);
    }
  }
  return text;
}

/// Opens a key and reads one of its values.
/// \param base  what the key path starts from: a root, or an open key.
template <class Base>
std::uint32_t readBelow(Base base, const std::wstring& keyPath, const std::wstring& valueName,
                        std::uint32_t expectedType, bool view64, std::wstring& text) {
  const auto key = platform::current().registry.RegOpenKeyExW(base, keyPath, readAccess(view64));
  return key ? readValue(key.value.get(), valueName, expectedType, text) : kNotFound;
}

std::wstring fullName(RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName) {
  return (root == RegistryRoot::kLocalMachine ? L"HKLM\\" : L"HKCU\\") + keyPath + L"\\" + valueName;
}

}  // namespace

std::optional<RegistryValueName> splitValueName(std::wstring_view fullPath) {
  const std::size_t first = fullPath.find(L'\\');
  if (first == std::wstring_view::npos) {
    return std::nullopt;
  }
  const std::wstring_view root = fullPath.substr(0, first);
  const bool machine = equalText(root, L"HKLM", true);
  if (!machine && !equalText(root, L"HKCU", true)) {
    return std::nullopt;
  }
  const std::size_t last = fullPath.rfind(L'\\');
  return RegistryValueName{machine ? RegistryRoot::kLocalMachine : RegistryRoot::kCurrentUser,
                           std::wstring(fullPath.substr(first + 1, last > first ? last - first - 1 : 0)),
                           std::wstring(fullPath.substr(last + 1))};
}

std::uint32_t readValue(platform::NativeHandle key, const std::wstring& valueName, std::uint32_t expectedType,
                        std::wstring& text) {
  return guardMemory([&]() -> std::uint32_t {
    const auto value = readRaw(key, valueName);
    if (!value || (expectedType != kAnyType && value->type != expectedType)) {
      return kNotFound;
    }
    text = textOf(*value);
    return value->type;
  });
}

std::uint32_t readPath(const std::wstring& fullPath, std::uint32_t expectedType, bool view64, std::wstring& text) {
  return guardMemory([&] {
    const auto name = splitValueName(fullPath);
    return name ? readBelow(name->root, name->keyPath, name->value, expectedType, view64, text) : kNotFound;
  });
}

std::wstring readPathDefault(const std::wstring& fullPath, std::wstring_view defaultText, bool view64) {
  return guardMemory([&] {
    std::wstring text;
    return readPath(fullPath, kAnyType, view64, text) != kNotFound ? text : std::wstring(defaultText);
  });
}

void cutAtNul(std::wstring& text) { text.resize(std::min(text.find(L'\0'), text.size())); }

std::uint32_t readKeyValue(RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName,
                           std::uint32_t expectedType, bool view64, std::wstring& text, std::wstring* foundAt) {
  return guardMemory([&] {
    std::uint32_t type = kNotFound;
    if (root == RegistryRoot::kCurrentUser) {
      const auto hive = platform::current().registry.RegOpenCurrentUser(readAccess(view64));
      if (hive) {
        type = readBelow(hive.value.get(), keyPath, valueName, expectedType, view64, text);
      }
    } else {
      type = readBelow(root, keyPath, valueName, expectedType, view64, text);
    }
    if (type != kNotFound && foundAt != nullptr) {
      *foundAt = fullName(root, keyPath, valueName);
    }
    return type;
  });
}

}  // namespace CORE
