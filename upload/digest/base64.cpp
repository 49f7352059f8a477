#include "upload/digest/base64.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/exception.h"

namespace {

std::string zeros(std::size_t characters) {
  try {
    return std::string(characters, '\0');
  } catch (const std::bad_alloc&) {
    CORE::throwOutOfMemory();
  }
}

std::uint32_t byteAt(std::string_view bytes, std::size_t i) { return static_cast<unsigned char>(bytes[i]); }

/// Encodes a last group of one or two bytes.
void encodeRest(std::string_view group, char* to, std::string_view alphabet) {
  const std::uint32_t bits = byteAt(group, 0) << 16 | (group.size() > 1 ? byteAt(group, 1) << 8 : 0U);
  for (std::size_t i = 0; i < 4; ++i) {
    to[i] = i <= group.size() ? alphabet[(bits >> (18 - 6 * i)) & 0x3F] : '=';
  }
}

/// What the four values of a whole group carry; those of characters outside the alphabet are -1.
void putGroup(const std::int32_t (&values)[4], char* to) {
  to[0] = static_cast<char>(((values[0] << 2) | ((values[1] >> 4) & 0x3)) & 0xFF);
  to[1] = static_cast<char>(((values[1] << 4) | ((values[2] >> 2) & 0xF)) & 0xFF);
  to[2] = static_cast<char>(((values[2] << 6) | values[3]) & 0xFF);
}

/// Decodes the group that padding or the end of the text cuts short, and returns the number of its bytes.
std::size_t decodeRest(std::string_view group, char* to, const Base64Table& table) {
  std::int32_t values[4];
  for (std::size_t i = 0; i < 4; ++i) {
    values[i] = table[static_cast<std::size_t>(i < group.size() ? group[i] : '\0') & 0x7F];
  }
  char bytes[3];
  putGroup(values, bytes);
  const std::size_t count = group.size() < 3 || group[2] == '=' ? 1 : group.size() < 4 || group[3] == '=' ? 2 : 3;
  std::copy_n(bytes, count, to);
  return count;
}

/// Decodes a text into room for three bytes a group, and returns how many bytes it gave.
std::size_t decode(std::string_view text, char* const output, const Base64Table& table) {
  char* to = output;
  const auto value = [&](std::size_t i) { return table[static_cast<std::size_t>(text[i]) & 0x7F]; };
  std::size_t i = 0;
  for (; i + 4 <= text.size() && text[i + 2] != '=' && text[i + 3] != '='; i += 4, to += 3) {
    putGroup({value(i), value(i + 1), value(i + 2), value(i + 3)}, to);
  }
  if (i < text.size()) {
    to += decodeRest(text.substr(i, 4), to, table);
  }
  return static_cast<std::size_t>(to - output);
}

}  // namespace

void base64Encode(std::string_view bytes, std::string& text, std::string_view alphabet) {
  std::string out = zeros((bytes.size() + 2) / 3 * 4);
  char* to = out.data();
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3, to += 4) {
    const std::uint32_t bits = byteAt(bytes, i) << 16 | byteAt(bytes, i + 1) << 8 | byteAt(bytes, i + 2);
    to[0] = alphabet[bits >> 18];
    to[1] = alphabet[bits >> 12 & 0x3F];
    to[2] = alphabet[bits >> 6 & 0x3F];
    to[3] = alphabet[bits & 0x3F];
  }
  if (i < bytes.size()) {
    encodeRest(bytes.substr(i), to, alphabet);
  }
  text = std::move(out);
}

void base64Decode(const CORE::mstr& text, CORE::mstr& output, const Base64Table& table) {
  const std::string_view characters = text;
  std::string bytes = zeros((characters.size() + 3) / 4 * 3);
  bytes.resize(decode(characters, bytes.data(), table));
  if (!text.isSecret()) {
    output = CORE::mstr(std::move(bytes));
    return;
  }
  CORE::mstr result = CORE::mstr::secret(bytes);
  CORE::wipe(bytes.data(), bytes.size());
  output = std::move(result);
}
