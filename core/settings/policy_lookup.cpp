#include "core/settings/policy_lookup.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "core/base/memory_guard.h"
#include "core/settings/legacy_policy.h"
#include "core/settings/registry_value.h"
#include "core/settings/setting_names.h"
#include "core/text/text.h"

namespace CORE {
namespace {

using platform::RegistryRoot;

/// The policy counterpart of a key path: "Policies" is its second component. Empty for the empty path.
std::wstring policyPath(std::wstring_view keyPath) {
  if (keyPath.empty()) {
    return {};
  }
  const std::size_t end = std::min(keyPath.find(L'\\'), keyPath.size());
  return std::wstring(keyPath.substr(0, end)).append(L"\\Policies").append(keyPath.substr(end));
}

/// Whether the former maker's policies count. The switch is read without this look-up, which would ask for it again.
bool legacyPoliciesCount() {
  const Setting& fallback = kFallbackToLegacyGPO;
  std::wstring text = readPathDefault(L"HKLM\\" + policyPath(kProductPath) + L"\\" + fallback.name, L"", false);
  cutAtNul(text);
  if (text.empty()) {
    text = readPathDefault(fallback.path(), fallback.defaultText, false);
    cutAtNul(text);
  }
  return textToBool(text);
}

/// One call of readConfig: what all its reads have in common.
struct Lookup {
  const RegistryValueName& name;
  std::uint32_t expectedType;
  bool view64;
  std::wstring& text;
  std::wstring* foundAt;

  std::uint32_t read(RegistryRoot root, const std::wstring& keyPath) const {
    return readKeyValue(root, keyPath, name.value, expectedType, view64, text, foundAt);
  }

  /// Reads below a policy key. The empty path stands for a policy that this value does not have.
  std::uint32_t readPolicy(RegistryRoot root, const std::wstring& keyPath) const {
    return keyPath.empty() ? kNotFound : read(root, keyPath);
  }

  std::uint32_t run() const {
    const std::wstring policy = policyPath(name.keyPath);
    std::uint32_t type = readPolicy(name.root, policy);
    if (type != kNotFound) {
      return type;
    }
    // The machine's values stand behind a user's.
    const bool user = name.root == RegistryRoot::kCurrentUser;
    const RegistryRoot machine = RegistryRoot::kLocalMachine;
    const std::wstring legacy = legacyPoliciesCount() ? legacyPolicyPath(name.keyPath) : std::wstring();
    if ((type = readPolicy(name.root, legacy)) != kNotFound ||
        (user && (type = readPolicy(machine, policy)) != kNotFound) ||
        (user && (type = readPolicy(machine, legacy)) != kNotFound) ||
        (type = read(name.root, name.keyPath)) != kNotFound) {
      return type;
    }
    return user ? read(machine, name.keyPath) : kNotFound;
  }
};

}  // namespace

std::uint32_t readConfig(const std::wstring& fullPath, std::uint32_t expectedType, bool view64, std::wstring& text,
                         std::wstring* foundAt) {
  text.clear();
  return guardMemory([&] {
    const auto name = splitValueName(fullPath);
    return name ? Lookup{*name, expectedType, view64, text, foundAt}.run() : kNotFound;
  });
}

}  // namespace CORE
