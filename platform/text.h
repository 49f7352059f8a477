#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kCodePageUtf8 = 65001;                 ///< CP_UTF8
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

  /// Compares the whole of two texts.
  /// \return 1 when the first is less, 2 (kCstrEqual) when they are equal, 3 when it is greater, 0 on failure.
  virtual int CompareStringW(std::uint32_t locale, std::uint32_t flags, std::wstring_view first,
                             std::wstring_view second) = 0;
  virtual int CompareStringA(std::uint32_t locale, std::uint32_t flags, std::string_view first,
                             std::string_view second) = 0;
  /// Replaces each character by its lower case.
  virtual void CharLowerBuffW(std::span<wchar_t> text) = 0;
  virtual void CharLowerBuffA(std::span<char> text) = 0;

  /// Writes the message for `code` in the default language into `buffer`.
  /// \param module  used only with kFormatMessageFromModule.
  /// \return the characters written, without the terminator.
  virtual Result<std::uint32_t> FormatMessageW(std::uint32_t flags, NativeHandle module, std::uint32_t code,
                                               std::span<wchar_t> buffer) = 0;
  /// Replaces each %NAME% by that variable's value.
  /// \return the characters needed or written, with the terminator; 0 on failure.
  virtual Result<std::uint32_t> ExpandEnvironmentStringsW(const std::wstring& source, std::span<wchar_t> buffer) = 0;
};

}  // namespace platform
