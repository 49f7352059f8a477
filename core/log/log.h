#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "core/format/format.h"

namespace CORE {

/// The levels of log records. Their names in a line are always five characters wide.
enum LogLevel : std::uint32_t {
  kTrace = 0,
  kDebug = 1,
  kInfo = 2,
  kWarn = 3,
  kError = 4,
  kFatal = 5,
};

/// The longest message of a record, in characters; the rest is cut off.
inline constexpr std::size_t kMaxMessageCharacters = 8192;

/// Returns whether records of that level are made at all. It costs one atomic read. Any thread.
bool logAdmits(std::uint32_t level) noexcept;

/// Formats the message, cuts it to kMaxMessageCharacters and hands it to the process-wide logger. Any thread; never
/// throws.
void logArguments(std::uint32_t level, std::wstring_view format, std::span<const FormatArgument> arguments) noexcept;

/// Logs a message; every part of the program calls it. The text begins with the qualified name of the operation and
/// "(): ". A call whose level is not admitted formats nothing. Any thread; never throws. The caller's texts are copied.
template <class... A>
void log(LogLevel level, FormatString<wchar_t, std::type_identity_t<A>...> format, const A&... arguments) noexcept {
  if (!logAdmits(level)) {
    return;
  }
  const std::array<FormatArgument, sizeof...(A) + 1> list = {detail::makeArgument(arguments)..., FormatArgument{}};
  logArguments(level, format.text(), std::span(list.data(), sizeof...(A)));
}

}  // namespace CORE
