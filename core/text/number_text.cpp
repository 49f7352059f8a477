#include "core/text/number_text.h"

#include <algorithm>
#include <limits>

namespace CORE {
namespace {

struct Number {
  bool negative = false;
  std::uint64_t magnitude = 0;  ///< kBeyond stands for every greater value too
};

constexpr std::uint64_t kBeyond = std::uint64_t{1} << 32;

/// Returns the value of a hexadecimal digit; 36, which is beyond every base, for anything else.
std::uint64_t digitOf(wchar_t c) {
  if (c >= L'0' && c <= L'9') {
    return static_cast<std::uint64_t>(c - L'0');
  }
  if (c >= L'a' && c <= L'f') {
    return static_cast<std::uint64_t>(c - L'a') + 10;
  }
  if (c >= L'A' && c <= L'F') {
    return static_cast<std::uint64_t>(c - L'A') + 10;
  }
  return 36;
}

Number readNumber(std::wstring_view text) {
  Number out;
  text.remove_prefix(std::min(text.find_first_not_of(L" \t\n\v\f\r"), text.size()));
  if (!text.empty() && (text[0] == L'-' || text[0] == L'+')) {
    out.negative = text[0] == L'-';
    text.remove_prefix(1);
  }
  std::uint64_t base = 10;
  if (text.size() > 2 && text[0] == L'0' && (text[1] == L'x' || text[1] == L'X') && digitOf(text[2]) < 16) {
    base = 16;
    text.remove_prefix(2);
  } else if (!text.empty() && text[0] == L'0') {
    base = 8;
  }
  for (const wchar_t c : text) {
    const std::uint64_t digit = digitOf(c);
    if (digit >= base) {
      break;
    }
    out.magnitude = std::min(out.magnitude * base + digit, kBeyond);
  }
  return out;
}

}  // namespace

std::int32_t textToInt32(std::wstring_view text) {
  const Number number = readNumber(text);
  const auto value = static_cast<std::int64_t>(number.magnitude);
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(number.negative ? -value : value,
                                                            std::numeric_limits<std::int32_t>::min(),
                                                            std::numeric_limits<std::int32_t>::max()));
}

std::uint32_t textToUint32(std::wstring_view text) {
  const Number number = readNumber(text);
  if (number.magnitude >= kBeyond) {
    return std::numeric_limits<std::uint32_t>::max();
  }
  const auto value = static_cast<std::uint32_t>(number.magnitude);
  return number.negative ? 0U - value : value;
}

}  // namespace CORE
