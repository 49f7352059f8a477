#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace CORE {

/// The code page of every text that leaves the program (HTTP, blob storage, script output): UTF-8.
inline constexpr std::uint32_t kUtf8 = platform::kCodePageUtf8;

/// Decodes a narrow text. kUtf8 is the only code page that it knows.
/// \throws coreException "to_wstr Failed" when the text is not valid UTF-8 (RFC 3629: no overlong forms and no
///         surrogates), and for any other code page.
std::wstring to_wstr(std::string_view text, std::uint32_t codePage);

/// Encodes a wide text. kUtf8 is the only code page that it knows.
/// \throws coreException "to_mstr Failed" for an unpaired surrogate, a value above U+10FFFF and any other code page.
std::string to_mstr(std::wstring_view text, std::uint32_t codePage);

}  // namespace CORE
