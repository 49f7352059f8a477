#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Unicode, character by character, and conversions of texts that are only shown, which never fail. Wide text is UTF-16
// where wchar_t has two bytes, UTF-32 where it has four. Pure functions; std::bad_alloc is the only exception.
// Sources: RFC 3629 (UTF-8: no overlong forms, no surrogates), The Unicode Standard, chapter 3.

namespace CORE {

void appendWide(std::wstring& out, char32_t character);
void appendUtf8(std::string& out, char32_t character);

/// Returns the character that begins at `position`, and moves `position` behind it. Nothing, and no move, when no valid
/// UTF-8 sequence begins there.
std::optional<char32_t> nextUtf8(std::string_view text, std::size_t& position);

/// Returns the character that begins at `position`; nothing for an unpaired surrogate and for a value above U+10FFFF.
/// Moves `position` behind it in either case.
std::optional<char32_t> nextWide(std::wstring_view text, std::size_t& position);

/// Decodes UTF-8. A byte that is not part of a valid sequence becomes the character of its value.
std::wstring toWideLossy(std::string_view text);

/// Encodes in UTF-8. What cannot be encoded becomes U+FFFD.
std::string toUtf8Lossy(std::wstring_view text);
/// As toUtf8Lossy, behind what `out` already holds.
void appendUtf8Lossy(std::string& out, std::wstring_view text);

/// Reads UTF-16LE bytes, as the registry stores text. A trailing odd byte is ignored; unpaired surrogates are kept.
std::wstring fromUtf16Bytes(std::span<const std::byte> bytes);

}  // namespace CORE
