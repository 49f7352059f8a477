#include "upload/digest/base64.h"

#include <new>
#include <utility>

#include "core/exception.h"

namespace {

std::string reserved(std::size_t characters) {
  std::string text;
  try {
    text.reserve(characters);
  } catch (const std::bad_alloc&) {
    CORE::throwOutOfMemory();
  }
  return text;
}

void encodeGroup(std::string_view group, std::string& text, std::string_view alphabet) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    bits = (bits << 8) | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0U);
  }
  for (std::size_t i = 0; i < 4; ++i) {
    text += i <= group.size() ? alphabet[(bits >> (18 - 6 * i)) & 0x3F] : '=';
  }
}

/// Decodes one group of 1 to 4 characters. False when its padding ends the text.
bool decodeGroup(std::string_view group, std::string& bytes, const Base64Table& table) {
  const auto value = [&](std::size_t i) {
    const char c = i < group.size() ? group[i] : '\0';
    return table[static_cast<std::size_t>(c) & 0x7F];
  };
  const auto put = [&](std::int32_t bits) { bytes += static_cast<char>(static_cast<unsigned char>(bits & 0xFF)); };
  put((value(0) << 2) | ((value(1) >> 4) & 0x3));
  if (group.size() > 2) {
    if (group[2] == '=') {
      return false;
    }
    put((value(1) << 4) | ((value(2) >> 2) & 0xF));
  }
  if (group.size() > 3) {
    if (group[3] == '=') {
      return false;
    }
    put((value(2) << 6) | value(3));
  }
  return true;
}

}  // namespace

void base64Encode(std::string_view bytes, std::string& text, std::string_view alphabet) {
  std::string out = reserved(bytes.size() * 2 + 4);  // twice the input, and room for one group
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    encodeGroup(bytes.substr(i, 3), out, alphabet);
  }
  text = std::move(out);
}

void base64Decode(const CORE::mstr& text, CORE::mstr& output, const Base64Table& table) {
  const std::string_view characters = text;
  std::string bytes = reserved(characters.size());
  for (std::size_t i = 0; i < characters.size() && decodeGroup(characters.substr(i, 4), bytes, table); i += 4) {
  }
  CORE::mstr result{std::string_view(bytes)};
  CORE::wipe(bytes.data(), bytes.size());
  if (text.isSecret()) {
    result.markSecret();
  }
  output = std::move(result);
}
