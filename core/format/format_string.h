#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

// Reading a format, and comparing it with the types of its arguments while the program is compiled.

namespace CORE {

/// What kind of value an argument is; decides which conversions may take it.
enum class FormatKind : std::uint8_t { kInteger, kPointer, kWide, kNarrow };

namespace detail {

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

/// The parts of one conversion: %[flags][width][.precision][length]letter.
struct Conversion {
  bool leftAligned = false;
  bool zeroPadded = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  std::size_t width = 0;
  std::size_t precision = kNoPrecision;
  bool is64 = false;
  char letter = 0;  ///< 0: not a conversion that this product knows
  static constexpr std::size_t kNoPrecision = static_cast<std::size_t>(-1);
  static constexpr std::size_t kMaxDigits = 512;  ///< a greater width or precision counts as this
};

/// Reads one conversion of a format; the position moves behind what has been read.
template <class C>
class ConversionReader {
 public:
  constexpr ConversionReader(std::basic_string_view<C> text, std::size_t& at) : text_(text), at_(at) {}

  constexpr Conversion read() {
    if (takeLetter()) {  // nearly every conversion is a letter alone
      return out_;
    }
    takeFlags();
    takeNumber(out_.width);
    if (take('.')) {
      takeNumber(out_.precision);
    }
    takeLength();
    takeLetter();
    return out_;
  }

 private:
  constexpr bool take(char c) {
    const bool found = at_ < text_.size() && text_[at_] == static_cast<C>(c);
    at_ += found ? 1 : 0;
    return found;
  }

  constexpr bool takeLetter() {
    for (const char letter : std::string_view("sSuxdiXpc%")) {
      if (take(letter)) {
        out_.letter = letter;
        return true;
      }
    }
    return false;
  }

  constexpr void takeFlags() {
    for (;;) {
      if (take('-')) {
        out_.leftAligned = true;
      } else if (take('0')) {
        out_.zeroPadded = true;
      } else if (take('+')) {
        out_.plus = true;
      } else if (take(' ')) {
        out_.blank = true;
      } else if (take('#')) {
        out_.alternate = true;
      } else {
        return;
      }
    }
  }

  constexpr void takeNumber(std::size_t& value) {
    value = 0;
    for (; at_ < text_.size() && text_[at_] >= static_cast<C>('0') && text_[at_] <= static_cast<C>('9'); ++at_) {
      value = value * 10 + static_cast<std::size_t>(text_[at_] - static_cast<C>('0'));
      if (value > Conversion::kMaxDigits) {
        value = Conversion::kMaxDigits;
      }
    }
  }

  constexpr void takeLength() {
    // On Windows "l" is 32 bits wide and "ll" is 64, whatever this system's long is.
    out_.is64 = take('z') || (take('l') && take('l'));
  }

  std::basic_string_view<C> text_;
  std::size_t& at_;
  Conversion out_;
};

/// Reads the conversion behind a "%"; `at` moves behind it.
template <class C>
constexpr Conversion readConversion(std::basic_string_view<C> text, std::size_t& at) {
  return ConversionReader<C>(text, at).read();
}

/// Whether a conversion letter may take an argument of that kind. "%s" takes text as wide as the format itself and "%S"
/// text of the other width, as Windows' own functions do.
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

/// Whether every conversion of the format finds an argument that it accepts and no argument is left over.
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

/// A format text that the compiler has compared with the types of its arguments; one that does not fit them does not
/// compile.
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

}  // namespace CORE
