#include <cctype>
#include <cstdlib>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "upload/digest/percent_decoding.h"

// Beside the C library's reading of hexadecimal numbers, and back from an encoding of our own.

namespace {

bool isDigit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

std::string decodedByPeer(std::string text, bool plusAsSpace) {
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
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::string_view digits = i % 2 == 0 ? "0123456789abcdef" : "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(bytes[i]);
    out += byte == 0 ? std::string(1, '\0') : std::string{'%', digits[byte / 16U], digits[byte % 16U]};
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(fuzz::bytes(data, size));
  for (const bool plusAsSpace : {false, true}) {
    const std::string decoded = percentDecode(input, plusAsSpace);
    FUZZ_CHECK(decoded.size() <= input.size());
    FUZZ_CHECK(decoded == decodedByPeer(input, plusAsSpace));
    FUZZ_CHECK(percentDecode(encoded(input), plusAsSpace) == input);
  }
  return 0;
}
