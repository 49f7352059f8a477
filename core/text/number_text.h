#pragma once

#include <cstdint>
#include <string_view>

namespace CORE {

/// Reads a number at the start of a text as the platform's strtol does with base 0: leading white space, a sign, "0x"
/// hexadecimal, leading "0" octal, else decimal; what follows the digits is ignored. Source: ISO C, 7.22.1.4, with a
/// long of 32 bits on every system.
/// \return 0 without digits; the nearest 32-bit number beyond the range.
std::int32_t textToInt32(std::wstring_view text);

/// As textToInt32 for strtoul: a minus sign negates modulo 2^32; 0xFFFFFFFF beyond the range.
std::uint32_t textToUint32(std::wstring_view text);

}  // namespace CORE
