#include "upload/digest/base64.h"

#include <algorithm>
#include <array>
#include <utility>

#include "core/base/memory_guard.h"

namespace {

/// Changes the length of a text that is about to be overwritten.
void makeRoom(std::string& text, std::size_t characters) {
  CORE::guardMemory([&] { text.resize(characters); });
}

/// The two characters that every 12 bits become. Encoding by pairs takes half as many steps as by single characters.
using PairTable = std::array<std::array<char, 2>, 4096>;

constexpr PairTable pairsOf(std::string_view alphabet) {
  PairTable pairs{};
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    pairs[i] = {alphabet[i >> 6], alphabet[i & 0x3F]};
  }
  return pairs;
}

constexpr PairTable kBase64Pairs = pairsOf(kBase64Alphabet);

std::uint32_t byteAt(std::string_view bytes, std::size_t i) { return static_cast<unsigned char>(bytes[i]); }

void encode(std::string_view bytes, char* to, const PairTable& pairs) {
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3, to += 4) {
    const std::uint32_t bits = byteAt(bytes, i) << 16 | byteAt(bytes, i + 1) << 8 | byteAt(bytes, i + 2);
    std::copy_n(pairs[bits >> 12].data(), 2, to);
    std::copy_n(pairs[bits & 0xFFF].data(), 2, to + 2);
  }
  if (i < bytes.size()) {
    const bool two = i + 2 == bytes.size();
    const std::uint32_t bits = byteAt(bytes, i) << 16 | (two ? byteAt(bytes, i + 1) << 8 : 0U);
    std::copy_n(pairs[bits >> 12].data(), 2, to);
    to[2] = two ? pairs[bits & 0xFFF][0] : '=';
    to[3] = '=';
  }
}

/// The bits that a character contributes in each of the four places of a group; one outside the alphabet counts as -1.
using PlaceTables = std::array<std::array<std::uint32_t, 128>, 4>;

constexpr PlaceTables placesOf(const Base64Table& table) {
  PlaceTables places{};
  for (std::size_t i = 0; i < table.size(); ++i) {
    const auto value = static_cast<std::uint32_t>(table[i]);
    places[0][i] = (value & 0x3F) << 18;
    places[1][i] = (value & 0x3F) << 12;
    places[2][i] = (value & 0x3F) << 6;
    places[3][i] = value & 0xFF;  // -1 fills the whole byte
  }
  return places;
}

constexpr PlaceTables kBase64Places = placesOf(kBase64Table);

/// Decodes a whole group to three bytes.
void decodeGroup(const char* group, char* to, const PlaceTables& places) {
  std::uint32_t bits = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    bits |= places[i][static_cast<std::size_t>(group[i]) & 0x7F];
  }
  to[0] = static_cast<char>(bits >> 16);
  to[1] = static_cast<char>(bits >> 8 & 0xFF);
  to[2] = static_cast<char>(bits & 0xFF);
}

/// Decodes a group that padding or the end of the text cuts short, and returns the number of its bytes.
std::size_t decodeRest(std::string_view group, char* to, const PlaceTables& places) {
  char whole[4] = {};  // a missing character counts as NUL
  std::copy(group.begin(), group.end(), whole);
  char bytes[3];
  decodeGroup(whole, bytes, places);
  const std::size_t count = group.size() < 3 || group[2] == '=' ? 1 : group.size() < 4 || group[3] == '=' ? 2 : 3;
  std::copy_n(bytes, count, to);
  return count;
}

/// Decodes a text into memory that has room for three bytes of each group, and returns the number of bytes written.
std::size_t decode(std::string_view text, char* const output, const PlaceTables& places) {
  char* to = output;
  std::size_t i = 0;
  for (const std::size_t plain = std::min(text.find('='), text.size()); i + 4 <= plain; i += 4, to += 3) {
    decodeGroup(text.data() + i, to, places);
  }
  for (; i + 4 <= text.size() && text[i + 2] != '=' && text[i + 3] != '='; i += 4, to += 3) {
    decodeGroup(text.data() + i, to, places);
  }
  if (i < text.size()) {
    to += decodeRest(text.substr(i, 4), to, places);
  }
  return static_cast<std::size_t>(to - output);
}

}  // namespace

void base64Encode(std::string_view bytes, std::string& text, std::string_view alphabet) {
  makeRoom(text, (bytes.size() + 2) / 3 * 4);
  if (alphabet == kBase64Alphabet) {
    encode(bytes, text.data(), kBase64Pairs);
  } else {
    encode(bytes, text.data(), pairsOf(alphabet));
  }
}

void base64Decode(const CORE::mstr& text, CORE::mstr& output, const Base64Table& table) {
  const std::string_view characters = text;
  std::string bytes;
  makeRoom(bytes, (characters.size() + 3) / 4 * 3);
  const bool usual = &table == &kBase64Table;
  bytes.resize(usual ? decode(characters, bytes.data(), kBase64Places)
                     : decode(characters, bytes.data(), placesOf(table)));
  if (!text.isSecret()) {
    output = CORE::mstr(std::move(bytes));
    return;
  }
  CORE::mstr result = CORE::mstr::secret(bytes);
  CORE::wipe(bytes.data(), bytes.size());
  output = std::move(result);
}
