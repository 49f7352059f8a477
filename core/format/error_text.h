#pragma once

#include <cstdint>
#include <string>

namespace CORE {

/// Returns the message for a system error number from the system's message table, without the blanks, tabs and line
/// ends at its end. A number without a message becomes "Error %u (0x%x)"; it is no reason to throw. Any thread.
/// Source: FormatMessageW with a buffer of 4096 characters.
std::wstring systemErrorText(std::uint32_t code);

/// Returns the number in front of the same message, as in "0x5 Access is denied.".
std::wstring numberedErrorText(std::uint32_t code);

/// Returns the message as systemErrorText does, but an empty text for a number without one.
std::wstring systemMessageText(std::uint32_t code);

/// Returns the message from the message table of a loaded module ("winhttp.dll"). When the module is not loaded or has
/// no message for the number, it returns systemErrorText.
std::wstring moduleErrorText(const std::wstring& module, std::uint32_t code);

}  // namespace CORE
