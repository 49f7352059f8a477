#pragma once

#include <string>
#include <string_view>

/// Decodes the percent escapes of a query name or value (RFC 3986, section 2.1).
///
/// An escape without two hexadecimal digits, or one that stands for the byte 0, is copied with its three characters. A
/// "%" with fewer than two characters behind it is copied too.
/// \param plusAsSpace  whether "+" stands for a space (HTML form encoding).
std::string percentDecode(std::string_view text, bool plusAsSpace);
