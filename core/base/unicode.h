#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Unicode: single characters, and conversions for texts that are only shown. The conversions never fail. (Those of
// core/text/convert.h throw on a text that is not valid.) A wide text is UTF-16 where wchar_t has two bytes, and UTF-32
// where it has four. The functions are pure and throw nothing but std::bad_alloc.
// Sources: RFC 3629 (UTF-8: no overlong forms, no surrogates), The Unicode Standard, chapter 3.

namespace CORE {

/// Appends a character, which has to be a valid one, in the encoding of `out`.
void appendWide(std::wstring& out, char32_t character);
void appendUtf8(std::string& out, char32_t character);

/// Returns the character that begins at `position`, and moves `position` behind it. When no valid UTF-8 sequence begins
/// there, it returns nothing and leaves `position` alone.
std::optional<char32_t> nextUtf8(std::string_view text, std::size_t& position);

/// Returns the character that begins at `position`, or nothing for an unpaired surrogate and a value above U+10FFFF. In
/// either case it moves `position` behind it.
std::optional<char32_t> nextWide(std::wstring_view text, std::size_t& position);

/// Decodes UTF-8. A byte that is not part of a valid sequence becomes the character of its value.
std::wstring toWideLossy(std::string_view text);
/// Decodes UTF-8. A byte that is not part of a valid sequence becomes U+FFFD, as MultiByteToWideChar without
/// MB_ERR_INVALID_CHARS replaces what is invalid.
std::wstring toWideReplacing(std::string_view text);

/// Encodes a text in UTF-8. What cannot be encoded becomes U+FFFD.
std::string toUtf8Lossy(std::wstring_view text);
/// Appends to `out` what toUtf8Lossy returns.
void appendUtf8Lossy(std::string& out, std::wstring_view text);

/// Decodes UTF-16LE bytes, which is how the registry stores text. An odd last byte is ignored; unpaired surrogates
/// stay.
std::wstring fromUtf16Bytes(std::span<const std::byte> bytes);

}  // namespace CORE
