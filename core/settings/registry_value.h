#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/handle.h"
#include "platform/registry.h"

namespace CORE {

/// A registry value's full name taken apart. The full name is one text: the root ("HKLM" or "HKCU", in any case), the
/// key path and the value name with backslashes between them, as in "HKLM\Software\Calvera\Meridon\Log\logEnabled".
struct RegistryValueName {
  platform::RegistryRoot root = platform::RegistryRoot::kLocalMachine;
  std::wstring keyPath;
  std::wstring value;
};

/// Takes a full name apart.
/// \return nothing when the text has no backslash or begins with another root.
std::optional<RegistryValueName> splitValueName(std::wstring_view fullPath);

/// As a result: not found. As the expected type: any type.
inline constexpr std::uint32_t kNotFound = 0xFFFFFFFF;
inline constexpr std::uint32_t kAnyType = 0xFFFFFFFF;

// These operations read a value of any type as text: REG_DWORD and REG_QWORD in decimal; everything else as UTF-16,
// REG_SZ and REG_EXPAND_SZ without their terminating NUL and REG_EXPAND_SZ expanded.
//
// Each returns the registry type that it found, or kNotFound, and then leaves its outputs as they were. "Not found"
// covers a key that cannot be opened, a missing value, a value of another type than the expected one, and a name
// without root or backslashes. Nothing is logged or cached: every call reads the registry afresh. Any thread may call.
// The only exception is coreException("OutOfMem").

/// Reads a value of an open key.
std::uint32_t readValue(platform::NativeHandle key, const std::wstring& valueName, std::uint32_t expectedType,
                        std::wstring& text);

/// Reads exactly the named value: no policy counts.
/// \param view64  asks for the 64-bit view of the registry (KEY_WOW64_64KEY). Only a 32-bit program sees a difference.
std::uint32_t readPath(const std::wstring& fullPath, std::uint32_t expectedType, bool view64, std::wstring& text);

/// Returns the text that readPath reads, of any type; the default when nothing is found.
std::wstring readPathDefault(const std::wstring& fullPath, std::wstring_view defaultText, bool view64);

/// Ends a setting's text at its first NUL, which belongs to no setting.
void cutAtNul(std::wstring& text);

/// Reads a value below a root. The current user's root stands for the hive of the user whom the calling thread
/// impersonates.
/// \param foundAt  when not null and the value was found: receives the full name under which it was found.
std::uint32_t readKeyValue(platform::RegistryRoot root, const std::wstring& keyPath, const std::wstring& valueName,
                           std::uint32_t expectedType, bool view64, std::wstring& text, std::wstring* foundAt);

}  // namespace CORE
