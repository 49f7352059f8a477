#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace CORE {

/// The code page of every text that leaves the program (HTTP, blob storage, script output): UTF-8.
inline constexpr std::uint32_t kUtf8 = 65001;

/// Decodes narrow text. Only kUtf8 is known.
/// \throws coreException "to_wstr Failed" when the text is not valid in that code page (RFC 3629: no overlong forms, no
///         surrogates) or the code page is another one.
std::wstring to_wstr(std::string_view text, std::uint32_t codePage);

/// Encodes wide text. Only kUtf8 is known.
/// \throws coreException "to_mstr Failed" on an unpaired surrogate, a value above U+10FFFF or another code page.
std::string to_mstr(std::wstring_view text, std::uint32_t codePage);

}  // namespace CORE
