#include "core/settings/configuration.h"

#include <span>

#include "core/base/memory_guard.h"
#include "core/settings/policy_lookup.h"
#include "core/settings/registry_value.h"
#include "core/text/text.h"
#include "platform/platform.h"

namespace CORE {

std::wstring readSetting(const Setting& setting) {
  return guardMemory([&] {
    std::wstring text;
    if (readConfig(setting.path(), kAnyType, false, text) == kNotFound) {
      return std::wstring(setting.defaultText);
    }
    cutAtNul(text);
    return text;
  });
}

bool readSettingBool(const Setting& setting) { return textToBool(readSetting(setting)); }

platform::Status writeSetting(const Setting& setting, std::uint32_t value) {
  return guardMemory([&]() -> platform::Status {
    const RegistryValueName name = splitValueName(setting.path()).value();
    auto& registry = platform::current().registry;
    const auto key = registry.RegCreateKeyExW(name.root, name.keyPath, platform::kKeySetValue);
    if (!key) {
      return {false, key.error};
    }
    return registry.RegSetValueExW(key.value.get(), name.value, platform::kRegDword,
                                   std::as_bytes(std::span(&value, 1)));
  });
}

}  // namespace CORE
