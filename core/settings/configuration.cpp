#include "core/settings/configuration.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "core/base/memory_guard.h"
#include "core/base/unicode.h"
#include "core/format/format.h"
#include "core/settings/environment.h"
#include "core/settings/legacy_policy.h"
#include "core/text/text.h"
#include "platform/platform.h"

namespace CORE {
namespace {

using platform::RegistryRoot;

// A value may grow between the call that asks for its size and the one that reads it.
constexpr int kMaxAttempts = 4;

/// A full name taken apart.
struct ValueName {
  RegistryRoot root;
  std::wstring keyPath;
  std::wstring value;
};

std::optional<ValueName> splitName(std::wstring_view fullPath) {
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
  return ValueName{machine ? RegistryRoot::kLocalMachine : RegistryRoot::kCurrentUser,
                   std::wstring(fullPath.substr(first + 1, last > first ? last - first - 1 : 0)),
                   std::wstring(fullPath.substr(last + 1))};
}

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
    // An empty buffer only asks for the size, so a value that was empty and no longer is comes here without an error.
    if (!info && info.error != platform::kErrorMoreData) {
      break;
    }
  }
  return std::nullopt;
}

/// Little-endian number of the first `count` bytes; missing bytes are zero.
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

/// Opens a key below a predefined one and reads; the first RegOpenKeyExW argument is a root or an open key.
template <class Base>
std::uint32_t readBelow(Base base, const std::wstring& keyPath, const std::wstring& valueName,
                        std::uint32_t expectedType, bool view64, std::wstring& text) {
  const auto key = platform::current().registry.RegOpenKeyExW(base, keyPath, readAccess(view64));
  return key ? readValue(key.value.get(), valueName, expectedType, text) : kNotFound;
}

std::wstring fullName(RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName) {
  return (root == RegistryRoot::kLocalMachine ? L"HKLM\\" : L"HKCU\\") + keyPath + L"\\" + valueName;
}

/// The policy counterpart of a key path: "Policies" as its second component. Empty for the empty path.
std::wstring policyPath(const std::wstring& keyPath) {
  if (keyPath.empty()) {
    return {};
  }
  const std::size_t end = std::min(keyPath.find(L'\\'), keyPath.size());
  return keyPath.substr(0, end) + L"\\Policies" + keyPath.substr(end);
}

/// Whether legacy policies count; they do when neither place says anything.
bool fallbackToLegacy() {
  std::wstring text = readPathDefault(L"HKLM\\Software\\Policies\\Calvera\\Meridon\\FallbackToLegacyGPO", L"", false);
  if (text.empty()) {
    text = readPathDefault(L"HKLM\\Software\\Calvera\\Meridon\\FallbackToLegacyGPO", L"true", false);
  }
  return textToBool(text);
}

/// One look-up of readConfig: what is the same in all its reads.
struct Lookup {
  ValueName name;
  std::uint32_t expectedType;
  bool view64;
  std::wstring& text;
  std::wstring* foundAt;

  /// Under the given root, as the calling thread's user.
  std::uint32_t read(const std::wstring& keyPath) const {
    return keyPath.empty() ? kNotFound
                           : readKeyValue(name.root, keyPath, name.value, expectedType, view64, text, foundAt);
  }

  /// The machine's value behind a user's.
  std::uint32_t readMachine(const std::wstring& keyPath) const {
    if (name.root != RegistryRoot::kCurrentUser || keyPath.empty()) {
      return kNotFound;
    }
    const std::uint32_t type = readBelow(RegistryRoot::kLocalMachine, keyPath, name.value, expectedType, view64, text);
    if (type != kNotFound && foundAt != nullptr) {
      *foundAt = fullName(RegistryRoot::kLocalMachine, keyPath, name.value);
    }
    return type;
  }

  std::uint32_t run() const {
    const std::wstring policy = policyPath(name.keyPath);
    std::uint32_t type = read(policy);
    if (type != kNotFound) {
      return type;
    }
    const std::wstring legacy = fallbackToLegacy() ? legacyPolicyPath(name.keyPath) : std::wstring();
    if ((type = read(legacy)) != kNotFound || (type = readMachine(policy)) != kNotFound ||
        (type = readMachine(legacy)) != kNotFound || (type = read(name.keyPath)) != kNotFound) {
      return type;
    }
    return readMachine(name.keyPath);
  }
};

}  // namespace

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
    const auto name = splitName(fullPath);
    return name ? readBelow(name->root, name->keyPath, name->value, expectedType, view64, text) : kNotFound;
  });
}

std::wstring readPathDefault(const std::wstring& fullPath, std::wstring_view defaultText, bool view64) {
  return guardMemory([&] {
    std::wstring text;
    return readPath(fullPath, kAnyType, view64, text) != kNotFound ? text : std::wstring(defaultText);
  });
}

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

std::uint32_t readConfig(const std::wstring& fullPath, std::uint32_t expectedType, bool view64, std::wstring& text,
                         std::wstring* foundAt) {
  text.clear();
  return guardMemory([&] {
    auto name = splitName(fullPath);
    return name ? Lookup{std::move(*name), expectedType, view64, text, foundAt}.run() : kNotFound;
  });
}

std::wstring readSetting(const std::wstring& fullPath, std::wstring_view defaultText) {
  return guardMemory([&] {
    std::wstring text;
    if (readConfig(fullPath, kAnyType, false, text) == kNotFound) {
      return std::wstring(defaultText);
    }
    text.resize(std::min(text.find(L'\0'), text.size()));
    return text;
  });
}

bool readSettingBool(const std::wstring& fullPath, bool defaultValue) {
  return textToBool(readSetting(fullPath, defaultValue ? L"true" : L"false"));
}

}  // namespace CORE
