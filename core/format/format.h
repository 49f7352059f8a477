#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "core/format/format_string.h"
#include "core/redaction/masks.h"
#include "core/text/corestring.h"

namespace CORE {

/// One argument of a format: a number, or a view of a text that outlives the call.
struct FormatArgument {
  FormatKind kind = FormatKind::kInteger;
  std::uint64_t number = 0;  ///< the two's complement of a negative number; an address
  std::wstring_view wide{};
  std::string_view narrow{};
};

namespace detail {

/// Returns the mask for a text that is secret or binary, otherwise the argument itself.
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

}  // namespace detail

/// Expands a format, with the same result on every system.
///
/// The conversions are %s (text as wide as the format), %S (text of the other width), %d %i %u %x %X (32 bits; 64 with
/// "ll" or "z"), %lu (32 bits, as long is on Windows), %p (sixteen upper-case digits), %c and %%, with flags, width and
/// precision. "%ull" is "%u" and the letters ll. A narrow text is UTF-8; a byte of it that is not part of a valid
/// sequence becomes the character of its value. A text that is marked secret or binary shows as "*****" or "<BINARY>".
/// \param limit  the greatest length of the result in characters. The rest is cut off, and no text is copied beyond it.
/// \return the expanded text; "<***** VPRINTF EXCEPTION *****>" for a format that does not fit its arguments.
std::wstring formatArguments(std::wstring_view format, std::span<const FormatArgument> arguments,
                             std::size_t limit = static_cast<std::size_t>(-1));
std::string formatArguments(std::string_view format, std::span<const FormatArgument> arguments,
                            std::size_t limit = static_cast<std::size_t>(-1));

/// Expands a wide format that the compiler has checked; see formatArguments.
template <class... A>
std::wstring format(FormatString<wchar_t, std::type_identity_t<A>...> text, const A&... arguments) {
  const std::array<FormatArgument, sizeof...(A) + 1> list = {detail::makeArgument(arguments)..., FormatArgument{}};
  return formatArguments(text.text(), std::span(list.data(), sizeof...(A)));
}

/// Expands a narrow format that the compiler has checked; see formatArguments.
template <class... A>
std::string formatNarrow(FormatString<char, std::type_identity_t<A>...> text, const A&... arguments) {
  const std::array<FormatArgument, sizeof...(A) + 1> list = {detail::makeArgument(arguments)..., FormatArgument{}};
  return formatArguments(text.text(), std::span(list.data(), sizeof...(A)));
}

}  // namespace CORE
