#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "core/format/format.h"

namespace CORE {

/// Levels of a log record. Their names in a line are always five characters wide.
enum LogLevel : std::uint32_t {
  kTrace = 0,
  kDebug = 1,
  kInfo = 2,
  kWarn = 3,
  kError = 4,
  kFatal = 5,
};

/// The longest message of a record, in characters; what goes beyond is cut.
inline constexpr std::size_t kMaxMessageCharacters = 8192;

/// Whether a record of that level is made at all. Costs one atomic read; any thread.
bool logAdmits(std::uint32_t level) noexcept;

/// Formats the message (cut to kMaxMessageCharacters) and hands the record to the process-wide logger. Never throws.
void logArguments(std::uint32_t level, std::wstring_view format, std::span<const FormatArgument> arguments) noexcept;

/// The log call of every part of the program: the text begins with the qualified operation name and "(): ".
/// A call that is not admitted formats nothing. Any thread; never throws; the caller's texts are not kept.
template <class... A>
void log(LogLevel level, FormatString<wchar_t, std::type_identity_t<A>...> format, const A&... arguments) noexcept {
  if (!logAdmits(level)) {
    return;
  }
  const std::array<FormatArgument, sizeof...(A) + 1> list = {detail::makeArgument(arguments)..., FormatArgument{}};
  logArguments(level, format.text(), std::span(list.data(), sizeof...(A)));
}

}  // namespace CORE
