#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/handle.h"
#include "platform/registry.h"

namespace CORE {

/// The product's key. A setting is named by one text: root ("HKLM" or "HKCU"), key path and value name, as in
/// "HKLM\Software\Calvera\Meridon\Log\logEnabled".
inline constexpr std::wstring_view kProductKey = L"HKLM\\Software\\Calvera\\Meridon";

/// As a result: not found. As the expected type: any type.
inline constexpr std::uint32_t kNotFound = 0xFFFFFFFF;
inline constexpr std::uint32_t kAnyType = 0xFFFFFFFF;

// Reading a value of whatever type as text: REG_DWORD and REG_QWORD in decimal, everything else as UTF-16 without a
// string's terminating NUL, REG_EXPAND_SZ expanded. Each operation returns the registry type found, or kNotFound, and
// then leaves its outputs as they were unless it says otherwise. A key that cannot be opened, a missing value and a
// value of another type than the expected one are all "not found"; so is a name without root or backslashes. Nothing is
// logged or kept: every call reads the registry afresh. Any thread. coreException("OutOfMem") is the only exception.

/// Reads a value of an open key.
std::uint32_t readValue(platform::NativeHandle key, const std::wstring& valueName, std::uint32_t expectedType,
                        std::wstring& text);

/// Reads exactly the value named, without any policy.
/// \param view64  asks for the 64-bit view of the registry (KEY_WOW64_64KEY). It makes a difference in a 32-bit program
///                only.
std::uint32_t readPath(const std::wstring& fullPath, std::uint32_t expectedType, bool view64, std::wstring& text);

/// As readPath; the default when nothing was found.
std::wstring readPathDefault(const std::wstring& fullPath, std::wstring_view defaultText, bool view64);

/// Reads a value below a root. For the current user's root that is the hive of the user whom the calling thread
/// impersonates.
/// \param foundAt  when not null and the value was found: the full name it was found under.
std::uint32_t readKeyValue(platform::RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName,
                           std::uint32_t expectedType, bool view64, std::wstring& text, std::wstring* foundAt);

/// The configuration look-up. The first of these places that has the value counts: the policy; the legacy policy (while
/// the fallback switch is on); for HKCU the machine's policy and legacy policy; the plain value; for HKCU the machine's
/// plain value. The text is empty when nothing was found.
/// \param foundAt  when not null and the value was found: the full name it was found under.
std::uint32_t readConfig(const std::wstring& fullPath, std::uint32_t expectedType, bool view64, std::wstring& text,
                         std::wstring* foundAt = nullptr);

/// A setting of the program as text up to its first NUL: readConfig of any type; the default when nothing is found. The
/// program has 64 bits, so its own view is the 64-bit one and none is asked for.
std::wstring readSetting(const std::wstring& fullPath, std::wstring_view defaultText);

/// A setting as a boolean (textToBool); the default when nothing is found.
bool readSettingBool(const std::wstring& fullPath, bool defaultValue);

}  // namespace CORE
