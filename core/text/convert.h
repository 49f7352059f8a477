#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
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

/// As to_wstr, for texts that are only shown: a byte that is not part of valid UTF-8 becomes the character of its
/// value.
std::wstring toWideLossy(std::string_view text);

/// As to_mstr, for texts that are only shown: what cannot be encoded becomes U+FFFD.
std::string toUtf8Lossy(std::wstring_view text);
/// The same, behind what `out` already holds.
void appendUtf8Lossy(std::string& out, std::wstring_view text);

/// Text from UTF-16LE bytes as the registry stores it; a trailing odd byte is ignored, unpaired surrogates are kept.
std::wstring fromUtf16Bytes(std::span<const std::byte> bytes);

}  // namespace CORE
