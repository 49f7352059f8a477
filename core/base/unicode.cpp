#include "core/base/unicode.h"

#include <algorithm>

namespace CORE {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

constexpr bool isHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool isLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

/// What the first byte of a UTF-8 sequence says.
struct Lead {
  int length;         ///< bytes of the sequence
  char32_t bits;      ///< the character's upper bits
  char32_t smallest;  ///< the smallest value that needs this length: anything below it is an overlong form
};

std::optional<Lead> leadOf(unsigned char byte) {
  if (byte < 0x80) return Lead{1, byte, 0};
  if (byte >= 0xC2 && byte <= 0xDF) return Lead{2, byte & 0x1FU, 0x80};
  if (byte >= 0xE0 && byte <= 0xEF) return Lead{3, byte & 0x0FU, 0x800};
  if (byte >= 0xF0 && byte <= 0xF4) return Lead{4, byte & 0x07U, 0x10000};
  return std::nullopt;
}

/// Decodes UTF-8. What `replacement` returns stands for a byte that is not part of a valid sequence.
template <class Replacement>
std::wstring decoded(std::string_view text, const Replacement& replacement) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (const auto c = nextUtf8(text, i)) {
      appendWide(out, *c);
    } else {
      out.push_back(replacement(text[i++]));
    }
  }
  return out;
}

/// Copies characters up to the first one that is not ASCII, and returns their number. Nearly all of a log is ASCII, and
/// the compiler can use vector instructions for whole blocks.
std::size_t copyAscii(std::wstring_view text, char* to) {
  constexpr std::size_t kBlock = 16;
  std::size_t at = 0;
  for (; at + kBlock <= text.size(); at += kBlock) {
    // The blocks are local variables so that the compiler knows that no store through `to` changes what is read.
    wchar_t from[kBlock];
    char narrow[kBlock];
    std::copy_n(text.data() + at, kBlock, from);
    std::uint32_t all = 0;
    for (std::size_t i = 0; i < kBlock; ++i) {
      all |= static_cast<std::uint32_t>(from[i]);
      narrow[i] = static_cast<char>(from[i]);
    }
    if (all >= 0x80) {
      break;
    }
    std::copy_n(narrow, kBlock, to + at);
  }
  for (; at < text.size() && static_cast<std::uint32_t>(text[at]) < 0x80; ++at) {
    to[at] = static_cast<char>(text[at]);
  }
  return at;
}

}  // namespace

void appendWide(std::wstring& out, char32_t c) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (c > 0xFFFF) {
      out.push_back(static_cast<wchar_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<wchar_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
      return;
    }
  }
  out.push_back(static_cast<wchar_t>(c));
}

void appendUtf8(std::string& out, char32_t c) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(static_cast<unsigned char>(byte))); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | (c >> 6));
    put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    put(0xE0 | (c >> 12));
    put(0x80 | ((c >> 6) & 0x3F));
    put(0x80 | (c & 0x3F));
  } else {
    put(0xF0 | (c >> 18));
    put(0x80 | ((c >> 12) & 0x3F));
    put(0x80 | ((c >> 6) & 0x3F));
    put(0x80 | (c & 0x3F));
  }
}

std::optional<char32_t> nextUtf8(std::string_view text, std::size_t& position) {
  const auto lead = leadOf(static_cast<unsigned char>(text[position]));
  if (!lead || text.size() - position < static_cast<std::size_t>(lead->length)) {
    return std::nullopt;
  }
  char32_t c = lead->bits;
  for (int i = 1; i < lead->length; ++i) {
    const auto byte = static_cast<unsigned char>(text[position + static_cast<std::size_t>(i)]);
    if ((byte & 0xC0) != 0x80) {
      return std::nullopt;
    }
    c = (c << 6) | (byte & 0x3FU);
  }
  // No surrogates either: RFC 3629, section 3.
  if (c < lead->smallest || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
    return std::nullopt;
  }
  position += static_cast<std::size_t>(lead->length);
  return c;
}

std::optional<char32_t> nextWide(std::wstring_view text, std::size_t& position) {
  const auto c = static_cast<char32_t>(text[position++]);
  if (isHighSurrogate(c) && position < text.size() && isLowSurrogate(static_cast<char32_t>(text[position]))) {
    const auto low = static_cast<char32_t>(text[position++]);
    return 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
  }
  if (c > 0x10FFFF || isHighSurrogate(c) || isLowSurrogate(c)) {
    return std::nullopt;
  }
  return c;
}

std::wstring toWideLossy(std::string_view text) {
  return decoded(text, [](char byte) { return static_cast<wchar_t>(static_cast<unsigned char>(byte)); });
}

std::wstring toWideReplacing(std::string_view text) {
  return decoded(text, [](char) { return static_cast<wchar_t>(kReplacement); });
}

std::string toUtf8Lossy(std::wstring_view text) {
  std::string out;
  appendUtf8Lossy(out, text);
  return out;
}

void appendUtf8Lossy(std::string& out, std::wstring_view text) {
  const std::size_t begin = out.size();
  out.resize(begin + text.size());
  const std::size_t ascii = copyAscii(text, out.data() + begin);
  out.resize(begin + ascii);
  for (std::size_t i = ascii; i < text.size();) {
    appendUtf8(out, nextWide(text, i).value_or(kReplacement));
  }
}

std::wstring fromUtf16Bytes(std::span<const std::byte> bytes) {
  std::wstring out;
  out.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    auto c = std::to_integer<char32_t>(bytes[i]) | (std::to_integer<char32_t>(bytes[i + 1]) << 8);
    if (sizeof(wchar_t) > 2 && isHighSurrogate(c) && i + 3 < bytes.size()) {
      const auto low = std::to_integer<char32_t>(bytes[i + 2]) | (std::to_integer<char32_t>(bytes[i + 3]) << 8);
      if (isLowSurrogate(low)) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        i += 2;
      }
    }
    out.push_back(static_cast<wchar_t>(c));
  }
  return out;
}

}  // namespace CORE
