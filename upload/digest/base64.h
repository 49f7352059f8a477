#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/text/corestring.h"

/// The alphabet of base64 (RFC 4648, section 4).
inline constexpr std::string_view kBase64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The value (0 to 63) of each character code below 128, or -1 for a character outside the alphabet.
using Base64Table = std::array<std::int32_t, 128>;

/// Returns the decoding table of an alphabet of 64 characters.
constexpr Base64Table base64TableOf(std::string_view alphabet) {
  Base64Table table{};
  table.fill(-1);
  for (std::size_t i = 0; i < alphabet.size(); ++i) {
    table[static_cast<std::size_t>(alphabet[i]) & 0x7F] = static_cast<std::int32_t>(i);
  }
  return table;
}

inline constexpr Base64Table kBase64Table = base64TableOf(kBase64Alphabet);

/// Encodes bytes with padding and without line breaks (RFC 4648, section 4).
/// \param text  is replaced; the bytes must not lie in it.
/// \param alphabet  64 characters.
/// \throws CORE::coreException "OutOfMem".
void base64Encode(std::string_view bytes, std::string& text, std::string_view alphabet = kBase64Alphabet);

/// Decodes a text without validating it.
///
/// A character outside the alphabet counts as the bits of -1, and blanks are not skipped. A "=" in the third or fourth
/// place of a group ends the group. A last group that is too short is decoded as far as it goes; one of a single
/// character becomes a byte, as if a character outside the alphabet followed.
/// \param output  is replaced. The output of a secret text is secret, and no copy of it stays in memory.
/// \throws CORE::coreException "OutOfMem".
void base64Decode(const CORE::mstr& text, CORE::mstr& output, const Base64Table& table = kBase64Table);
