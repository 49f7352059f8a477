#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "core/redaction/masks.h"
#include "core/text/corestring.h"

namespace CORE {

/// What kind of value an argument is; decides which conversions may take it.
enum class FormatKind : std::uint8_t { kInteger, kPointer, kWide, kNarrow };

/// One argument of a format: a number, or a view of a text that outlives the call.
struct FormatArgument {
  FormatKind kind = FormatKind::kInteger;
  std::uint64_t number = 0;  ///< two's complement of a negative number; an address
  std::wstring_view wide{};
  std::string_view narrow{};
};

namespace detail {

template <class T>
inline constexpr bool isText =
    std::is_convertible_v<const T&, std::wstring_view> || std::is_convertible_v<const T&, std::string_view> ||
    std::is_same_v<std::decay_t<T>, wchar_t*> || std::is_same_v<std::decay_t<T>, char*>;

template <class T>
constexpr FormatKind kindOf() {
  using D = std::decay_t<T>;
  if constexpr (std::is_convertible_v<const D&, std::wstring_view>) {
    return FormatKind::kWide;
  } else if constexpr (std::is_convertible_v<const D&, std::string_view>) {
    return FormatKind::kNarrow;
  } else if constexpr (std::is_pointer_v<D>) {
    return FormatKind::kPointer;
  } else {
    static_assert(std::is_integral_v<D> || std::is_enum_v<D>, "a format takes integers, pointers and texts");
    return FormatKind::kInteger;
  }
}

template <class C>
FormatArgument maskedOr(const corestring<C>& text, FormatArgument plain) {
  if (text.isSecret()) {
    return {FormatKind::kWide, 0, kSecretMask, kSecretMaskNarrow};
  }
  if (text.isBinary() && text.byteLength() != 0) {
    return {FormatKind::kWide, 0, kBinaryMask, kBinaryMaskNarrow};
  }
  return plain;
}

template <class T>
FormatArgument makeArgument(const T& value) {
  using D = std::decay_t<T>;
  if constexpr (std::is_same_v<D, wstr>) {
    return maskedOr(value, {FormatKind::kWide, 0, value.str(), {}});
  } else if constexpr (std::is_same_v<D, mstr>) {
    auto out = maskedOr(value, {FormatKind::kNarrow, 0, {}, value.str()});
    out.kind = FormatKind::kNarrow;
    return out;
  } else if constexpr (kindOf<T>() == FormatKind::kWide) {
    if constexpr (std::is_pointer_v<T>) {
      return {FormatKind::kWide, 0, value == nullptr ? std::wstring_view(L"(null)") : std::wstring_view(value), {}};
    } else {
      return {FormatKind::kWide, 0, std::wstring_view(value), {}};
    }
  } else if constexpr (kindOf<T>() == FormatKind::kNarrow) {
    if constexpr (std::is_pointer_v<T>) {
      return {FormatKind::kNarrow, 0, {}, value == nullptr ? std::string_view("(null)") : std::string_view(value)};
    } else {
      return {FormatKind::kNarrow, 0, {}, std::string_view(value)};
    }
  } else if constexpr (kindOf<T>() == FormatKind::kPointer) {
    return {FormatKind::kPointer, reinterpret_cast<std::uintptr_t>(value), {}, {}};
  } else {
    return {FormatKind::kInteger, static_cast<std::uint64_t>(static_cast<std::int64_t>(value)), {}, {}};
  }
}

/// One conversion taken apart: %[flags][width][.precision][length]letter.
struct Conversion {
  bool leftAligned = false;
  bool zeroPadded = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  std::size_t width = 0;
  std::size_t precision = kNoPrecision;
  bool is64 = false;
  char letter = 0;  ///< 0: not a conversion of this product
  static constexpr std::size_t kNoPrecision = static_cast<std::size_t>(-1);
  static constexpr std::size_t kMaxDigits = 512;
};

/// Reads the conversion behind a "%"; `at` moves behind it.
template <class C>
constexpr Conversion readConversion(std::basic_string_view<C> text, std::size_t& at) {
  Conversion out;
  const auto is = [&](char c) { return at < text.size() && text[at] == static_cast<C>(c); };
  const auto takeLetter = [&] {
    for (const char letter : std::string_view("sSuxdiXpc%")) {
      if (is(letter)) {
        out.letter = letter;
        ++at;
        return true;
      }
    }
    return false;
  };
  if (takeLetter()) {  // nearly every conversion is a letter alone
    return out;
  }
  const auto number = [&](std::size_t& value) {
    value = 0;
    for (; at < text.size() && text[at] >= static_cast<C>('0') && text[at] <= static_cast<C>('9'); ++at) {
      value = value * 10 + static_cast<std::size_t>(text[at] - static_cast<C>('0'));
      if (value > Conversion::kMaxDigits) {
        value = Conversion::kMaxDigits;
      }
    }
  };
  for (;; ++at) {
    if (is('-')) {
      out.leftAligned = true;
    } else if (is('0')) {
      out.zeroPadded = true;
    } else if (is('+')) {
      out.plus = true;
    } else if (is(' ')) {
      out.blank = true;
    } else if (is('#')) {
      out.alternate = true;
    } else {
      break;
    }
  }
  number(out.width);
  if (is('.')) {
    ++at;
    number(out.precision);
  }
  if (is('z')) {
    out.is64 = true;
    ++at;
  } else if (is('l')) {  // "l" is 32 bits wide on this platform, "ll" 64
    ++at;
    if (is('l')) {
      out.is64 = true;
      ++at;
    }
  }
  takeLetter();
  return out;
}

/// Whether a conversion letter may take an argument of that kind. "%s" takes text as wide as the format itself and "%S"
/// the other width, as on the platform.
template <class C>
constexpr bool accepts(char letter, FormatKind kind) {
  constexpr bool wideFormat = std::is_same_v<C, wchar_t>;
  switch (letter) {
    case 's':
      return kind == (wideFormat ? FormatKind::kWide : FormatKind::kNarrow);
    case 'S':
      return kind == (wideFormat ? FormatKind::kNarrow : FormatKind::kWide);
    case 'p':
      return kind == FormatKind::kPointer || kind == FormatKind::kInteger;
    default:
      return kind == FormatKind::kInteger;
  }
}

/// Whether every conversion of the format finds its argument and no argument is left over.
template <class C>
constexpr bool matches(std::basic_string_view<C> text, const FormatKind* kinds, std::size_t count) {
  std::size_t used = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at++] != static_cast<C>('%')) {
      continue;
    }
    const Conversion conversion = readConversion(text, at);
    if (conversion.letter == 0) {
      return false;
    }
    if (conversion.letter == '%') {
      continue;
    }
    if (used == count || !accepts<C>(conversion.letter, kinds[used])) {
      return false;
    }
    ++used;
  }
  return used == count;
}

}  // namespace detail

/// A format text that the compiler has held against the types of its arguments.
template <class C, class... A>
class FormatString {
 public:
  template <std::size_t N>
  consteval FormatString(const C (&text)[N]) : text_(text, N - 1) {
    constexpr std::array<FormatKind, sizeof...(A) + 1> kinds = {detail::kindOf<A>()..., FormatKind::kInteger};
    if (!detail::matches<C>(text_, kinds.data(), sizeof...(A))) {
      throw "the format does not fit its arguments";
    }
  }
  constexpr std::basic_string_view<C> text() const { return text_; }

 private:
  std::basic_string_view<C> text_;
};

/// Expands a format: %s (text as wide as the format), %S (the other width), %d %i %u %x %X (32 bits; 64 with "ll" or
/// "z"), %lu (32 bits, as long is on the platform), %p (sixteen upper-case digits), %c and %%, with flags, width and
/// precision. "%ull" is "%u" and the letters ll. Narrow texts are UTF-8; a byte that is not becomes the character of
/// its value. Texts marked secret or binary show "*****" and "<BINARY>".
///
/// \param limit  most characters of the result; what goes beyond is cut (a text is never copied beyond it).
/// A format that does not fit its arguments gives "<***** VPRINTF EXCEPTION *****>". Same result on every system.
std::wstring formatArguments(std::wstring_view format, std::span<const FormatArgument> arguments,
                             std::size_t limit = static_cast<std::size_t>(-1));
std::string formatArguments(std::string_view format, std::span<const FormatArgument> arguments,
                            std::size_t limit = static_cast<std::size_t>(-1));

/// Expands a wide format that was checked when it was compiled.
template <class... A>
std::wstring format(FormatString<wchar_t, std::type_identity_t<A>...> text, const A&... arguments) {
  const std::array<FormatArgument, sizeof...(A) + 1> list = {detail::makeArgument(arguments)..., FormatArgument{}};
  return formatArguments(text.text(), std::span(list.data(), sizeof...(A)));
}

/// Expands a narrow format that was checked when it was compiled.
template <class... A>
std::string formatNarrow(FormatString<char, std::type_identity_t<A>...> text, const A&... arguments) {
  const std::array<FormatArgument, sizeof...(A) + 1> list = {detail::makeArgument(arguments)..., FormatArgument{}};
  return formatArguments(text.text(), std::span(list.data(), sizeof...(A)));
}

}  // namespace CORE
