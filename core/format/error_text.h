#pragma once

#include <cstdint>
#include <string>

namespace CORE {

/// The message for a system error number from the system message table, trailing blanks, tabs and line ends removed.
/// A number without a message gives "Error %u (0x%x)". Never throws for an unknown number; any thread.
/// Source: FormatMessageW with a buffer of 4096 characters.
std::wstring systemErrorText(std::uint32_t code);

/// As systemErrorText, but empty for a number without a message.
std::wstring systemMessageText(std::uint32_t code);

/// As systemErrorText, from the message table of a loaded module ("winhttp.dll"); the system's table stands in when the
/// module is not loaded or does not know the number.
std::wstring moduleErrorText(const std::wstring& module, std::uint32_t code);

}  // namespace CORE
