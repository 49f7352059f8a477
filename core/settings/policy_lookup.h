#pragma once

#include <cstdint>
#include <string>

namespace CORE {

/// Looks a configuration value up: an administrator's policies count before the value itself. These places are read in
/// this order, and the first that has the value (of the expected type) counts:
///
/// 1. the policy: the same key path with "Policies" behind its first component;
/// 2. the former maker's policy (legacyPolicyPath), unless the switch kFallbackToLegacyGPO is off;
/// 3. for HKCU only: the policy and the former maker's policy below HKLM;
/// 4. the value as it is named;
/// 5. for HKCU only: the value of that name below HKLM.
///
/// \param fullPath  root, key path and value name, as splitValueName takes it.
/// \param expectedType  a registry type, or kAnyType.
/// \param view64  as readPath has it.
/// \param text  receives the value as text (readValue); empty when nothing was found.
/// \param foundAt  when not null and the value was found: receives the full name under which it was found.
/// \return the registry type found, or kNotFound.
/// \throws coreException("OutOfMem") and nothing else. Nothing is logged or cached. Any thread may call.
std::uint32_t readConfig(const std::wstring& fullPath, std::uint32_t expectedType, bool view64, std::wstring& text,
                         std::wstring* foundAt = nullptr);

}  // namespace CORE
