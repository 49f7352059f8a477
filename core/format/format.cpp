#include "core/format/format.h"

#include <algorithm>
#include <iterator>

#include "core/base/unicode.h"

namespace CORE {
namespace {

using detail::Conversion;

constexpr std::size_t kMaxDigitsOf64Bits = 20;

/// A longer format is a message, for which the result reserves its memory at once.
constexpr std::size_t kShortFormat = 32;

/// Expands one format. No text that is appended makes the result longer than the limit.
template <class C>
class Expansion {
 public:
  using View = std::basic_string_view<C>;

  Expansion(View format, std::span<const FormatArgument> arguments, std::size_t limit)
      : format_(format), arguments_(arguments), limit_(limit) {}

  std::basic_string<C> run() {
    if (format_.size() > kShortFormat) {
      out_.reserve(std::min(limit_, format_.size() * 2));
    }
    std::size_t at = 0;
    while (at < format_.size() && !full()) {
      const std::size_t percent = std::min(format_.find(static_cast<C>('%'), at), format_.size());
      append(format_.substr(at, percent - at));
      at = percent + 1;
      if (percent < format_.size() && !convert(at)) {
        return mismatch();
      }
    }
    return std::move(out_);
  }

 private:
  bool full() const { return out_.size() >= limit_; }
  std::size_t room() const { return limit_ - out_.size(); }

  void append(View text) { out_.append(text.substr(0, room())); }
  void fill(std::size_t count, char c) { out_.append(std::min(count, room()), static_cast<C>(c)); }

  static std::basic_string<C> mismatch() {
    if constexpr (std::is_same_v<C, wchar_t>) {
      return L"<***** VPRINTF EXCEPTION *****>";
    } else {
      return "<***** VPRINTF EXCEPTION *****>";
    }
  }

  /// Expands the conversion behind a "%" and moves `at` behind it. Returns false when it does not fit the next
  /// argument.
  bool convert(std::size_t& at) {
    const Conversion conversion = detail::readConversion(format_, at);
    if (conversion.letter == '%') {
      fill(1, '%');
      return true;
    }
    if (conversion.letter == 0 || next_ == arguments_.size() ||
        !detail::accepts<C>(conversion.letter, arguments_[next_].kind)) {
      return false;
    }
    const FormatArgument& argument = arguments_[next_++];
    if (conversion.letter == 's' || conversion.letter == 'S') {
      putText(conversion, argument);
    } else if (conversion.letter == 'c') {
      const C c = static_cast<C>(argument.number);
      putPadded(conversion, View(&c, 1));
    } else {
      putNumber(conversion, argument.number);
    }
    return true;
  }

  void putText(const Conversion& conversion, const FormatArgument& argument) {
    if constexpr (std::is_same_v<C, wchar_t>) {
      if (argument.kind == FormatKind::kWide) {
        putPadded(conversion, argument.wide);
      } else {
        // A character takes at most four bytes, so this many bytes always fill the room that is left.
        const std::size_t bytes = room() > argument.narrow.size() / 4 ? argument.narrow.size() : room() * 4 + 3;
        putPadded(conversion, toWideLossy(argument.narrow.substr(0, bytes)));
      }
    } else {
      if (argument.kind == FormatKind::kNarrow) {
        putPadded(conversion, argument.narrow);
      } else {
        putPadded(conversion, toUtf8Lossy(argument.wide));
      }
    }
  }

  void putPadded(const Conversion& conversion, View text) {
    text = text.substr(0, conversion.precision);
    const std::size_t pad = conversion.width > text.size() ? conversion.width - text.size() : 0;
    if (!conversion.leftAligned) {
      fill(pad, ' ');
    }
    append(text);
    if (conversion.leftAligned) {
      fill(pad, ' ');
    }
  }

  void putNumber(const Conversion& conversion, std::uint64_t number) {
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
    const bool is64 = conversion.is64 || conversion.letter == 'p';
    std::uint64_t magnitude = is64 ? number : static_cast<std::uint32_t>(number);
    C prefix[2];
    std::size_t prefixSize = 0;
    if (isSigned) {
      const std::int64_t value =
          is64 ? static_cast<std::int64_t>(number) : static_cast<std::int32_t>(static_cast<std::uint32_t>(number));
      magnitude = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
      prefix[0] = static_cast<C>(value < 0 ? '-' : conversion.plus ? '+' : ' ');
      prefixSize = value < 0 || conversion.plus || conversion.blank ? 1 : 0;
    } else if (conversion.alternate && magnitude != 0 && (conversion.letter == 'x' || conversion.letter == 'X')) {
      prefix[0] = static_cast<C>('0');
      prefix[1] = static_cast<C>(conversion.letter);
      prefixSize = 2;
    }
    C digits[kMaxDigitsOf64Bits];
    C* const end = std::end(digits);
    const View shown = digitsOf(conversion.letter, magnitude, end);
    putDigits(conversion, View(prefix, prefixSize), shown);
  }

  /// Writes the digits of a number so that they end at `end`, and returns them. The number 0 has none.
  static View digitsOf(char letter, std::uint64_t magnitude, C* const end) {
    const char* const alphabet = letter == 'x' ? "0123456789abcdef" : "0123456789ABCDEF";
    C* begin = end;
    if (letter == 'x' || letter == 'X' || letter == 'p') {
      for (; magnitude != 0; magnitude /= 16) {
        *--begin = static_cast<C>(alphabet[magnitude % 16]);
      }
    } else {
      for (; magnitude != 0; magnitude /= 10) {
        *--begin = static_cast<C>(alphabet[magnitude % 10]);
      }
    }
    return View(begin, static_cast<std::size_t>(end - begin));
  }

  void putDigits(const Conversion& conversion, View prefix, View digits) {
    const bool hasPrecision = conversion.precision != Conversion::kNoPrecision;
    std::size_t minimum = conversion.letter == 'p' ? 16 : hasPrecision ? conversion.precision : 1;
    if (conversion.zeroPadded && !conversion.leftAligned && !hasPrecision) {
      minimum = std::max(minimum, conversion.width - std::min(conversion.width, prefix.size()));
    }
    const std::size_t zeros = minimum - std::min(minimum, digits.size());
    const std::size_t size = prefix.size() + zeros + digits.size();
    const std::size_t pad = conversion.width - std::min(conversion.width, size);
    fill(conversion.leftAligned ? 0 : pad, ' ');
    append(prefix);
    fill(zeros, '0');
    append(digits);
    fill(conversion.leftAligned ? pad : 0, ' ');
  }

  View format_;
  std::span<const FormatArgument> arguments_;
  std::size_t limit_;
  std::size_t next_ = 0;
  std::basic_string<C> out_;
};

}  // namespace

std::wstring formatArguments(std::wstring_view format, std::span<const FormatArgument> arguments, std::size_t limit) {
  return Expansion<wchar_t>(format, arguments, limit).run();
}

std::string formatArguments(std::string_view format, std::span<const FormatArgument> arguments, std::size_t limit) {
  return Expansion<char>(format, arguments, limit).run();
}

}  // namespace CORE
