#include "upload/digest/percent_decoding.h"

namespace {

/// Returns the value of a hexadecimal digit; -1 for any other character.
int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string percentDecode(std::string_view text, bool plusAsSpace) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && text.size() - i > 2) {
      const int high = hexValue(text[i + 1]);
      const int low = hexValue(text[i + 2]);
      const int byte = high < 0 || low < 0 ? 0 : high * 16 + low;
      if (byte != 0) {
        out += static_cast<char>(static_cast<unsigned char>(byte));
      } else {
        out += text.substr(i, 3);
      }
      i += 2;
    } else {
      out += text[i] == '+' && plusAsSpace ? ' ' : text[i];
    }
  }
  return out;
}
