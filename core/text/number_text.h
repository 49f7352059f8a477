#pragma once

#include <cstdint>
#include <string_view>

namespace CORE {

/// Reads the number at the start of a text as strtol does with base 0. White space and a sign may come first; "0x"
/// begins a hexadecimal number, "0" an octal one, any other digit a decimal one. What follows the digits is ignored.
/// Source: ISO C, 7.22.1.4, with a long of 32 bits on every system.
/// \return 0 without digits; the nearest 32-bit number when the value is out of range.
std::int32_t textToInt32(std::wstring_view text);

/// Reads the number at the start of a text as strtoul does with base 0: as textToInt32, but a minus sign negates modulo
/// 2^32.
/// \return 0 without digits; 0xFFFFFFFF when the value is out of range.
std::uint32_t textToUint32(std::wstring_view text);

}  // namespace CORE
