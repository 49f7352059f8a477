#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kLocaleUserDefault = 0x400;            ///< LOCALE_USER_DEFAULT
inline constexpr std::uint32_t kNormIgnoreCase = 0x1;                 ///< NORM_IGNORECASE
inline constexpr int kCstrEqual = 2;                                  ///< CSTR_EQUAL
inline constexpr std::uint32_t kFormatMessageFromSystem = 0x1000;     ///< FORMAT_MESSAGE_FROM_SYSTEM
inline constexpr std::uint32_t kFormatMessageFromModule = 0x0800;     ///< FORMAT_MESSAGE_FROM_HMODULE
inline constexpr std::uint32_t kFormatMessageIgnoreInserts = 0x0200;  ///< FORMAT_MESSAGE_IGNORE_INSERTS

/// Text services of the platform. Every operation is one platform call of that name; any thread may call.
class Text {
 public:
  virtual ~Text() = default;

  /// 1 less, 2 equal (kCstrEqual), 3 greater, 0 failed. The views are compared over their whole lengths.
  virtual int CompareStringW(std::uint32_t locale, std::uint32_t flags, std::wstring_view first,
                             std::wstring_view second) = 0;
  virtual int CompareStringA(std::uint32_t locale, std::uint32_t flags, std::string_view first,
                             std::string_view second) = 0;
  /// Lower-cases in place.
  virtual void CharLowerBuffW(std::span<wchar_t> text) = 0;
  virtual void CharLowerBuffA(std::span<char> text) = 0;

  /// Writes the message for `code` in the default language into `buffer`. value: characters written, without the
  /// terminator. `module` counts only with kFormatMessageFromModule.
  virtual Result<std::uint32_t> FormatMessageW(std::uint32_t flags, NativeHandle module, std::uint32_t code,
                                               std::span<wchar_t> buffer) = 0;
  /// Replaces %NAME% parts. value: characters needed or written, with the terminator; 0 on failure.
  virtual Result<std::uint32_t> ExpandEnvironmentStringsW(const std::wstring& source, std::span<wchar_t> buffer) = 0;
};

}  // namespace platform
