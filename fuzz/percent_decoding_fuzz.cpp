#include <cctype>

#include "fuzz/fuzz.h"
#include "upload/digest/percent_decoding.h"

// Compares decoding with the C library's reading of hexadecimal numbers, and with an encoding written here.

namespace {

std::string decodedByPeer(std::string text, bool plusAsSpace) {
  const auto isDigit = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
  std::string out;
  while (!text.empty()) {
    const bool escape = text.size() >= 3 && text[0] == '%';
    const std::string piece = text.substr(0, escape ? 3 : 1);
    text.erase(0, piece.size());
    const long byte = escape && isDigit(piece[1]) && isDigit(piece[2]) ? std::strtol(&piece[1], nullptr, 16) : 0;
    out += byte != 0 ? std::string(1, static_cast<char>(byte)) : piece == "+" && plusAsSpace ? " " : piece;
  }
  return out;
}

std::string encoded(std::string_view bytes) {
  std::string out;
  for (const char c : bytes) {
    const std::string_view digits = out.size() % 2 == 0 ? "0123456789abcdef" : "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    out += byte == 0 ? std::string(1, '\0') : std::string{'%', digits[byte / 16U], digits[byte % 16U]};
  }
  return out;
}

}  // namespace

void fuzz::target(std::string_view input) {
  for (const bool plusAsSpace : {false, true}) {
    FUZZ_CHECK(percentDecode(input, plusAsSpace) == decodedByPeer(std::string(input), plusAsSpace));
    FUZZ_CHECK(percentDecode(encoded(input), plusAsSpace) == input);
  }
}
