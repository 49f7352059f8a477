#include "platform/windows/windows_text.h"

#include <algorithm>

#include "platform/windows/native.h"

namespace platform {

static_assert(kCodePageUtf8 == CP_UTF8);
static_assert(kLocaleUserDefault == LOCALE_USER_DEFAULT);
static_assert(kNormIgnoreCase == NORM_IGNORECASE);
static_assert(kCstrEqual == CSTR_EQUAL);
static_assert(kFormatMessageFromSystem == FORMAT_MESSAGE_FROM_SYSTEM);
static_assert(kFormatMessageFromModule == FORMAT_MESSAGE_FROM_HMODULE);
static_assert(kFormatMessageIgnoreInserts == FORMAT_MESSAGE_IGNORE_INSERTS);

namespace {

/// Returns a pointer that is not null, which the comparisons refuse: an empty view may hold one.
template <class Char>
const Char* dataOf(std::basic_string_view<Char> text) {
  static constexpr Char kNothing{};
  return text.empty() ? &kNothing : text.data();
}

/// Returns a length that is never negative, which would mean "up to the terminator".
int lengthOf(std::size_t length) {
  return static_cast<int>(std::min<std::size_t>(length, std::numeric_limits<int>::max()));
}

}  // namespace

int WindowsText::CompareStringW(std::uint32_t locale, std::uint32_t flags, std::wstring_view first,
                                std::wstring_view second) {
  return ::CompareStringW(locale, flags, dataOf(first), lengthOf(first.size()), dataOf(second),
                          lengthOf(second.size()));
}

int WindowsText::CompareStringA(std::uint32_t locale, std::uint32_t flags, std::string_view first,
                                std::string_view second) {
  return ::CompareStringA(locale, flags, dataOf(first), lengthOf(first.size()), dataOf(second),
                          lengthOf(second.size()));
}

void WindowsText::CharLowerBuffW(std::span<wchar_t> text) { ::CharLowerBuffW(text.data(), atMostDword(text.size())); }

void WindowsText::CharLowerBuffA(std::span<char> text) { ::CharLowerBuffA(text.data(), atMostDword(text.size())); }

Result<std::uint32_t> WindowsText::FormatMessageW(std::uint32_t flags, NativeHandle module, std::uint32_t code,
                                                  std::span<wchar_t> buffer) {
  const DWORD written = ::FormatMessageW(flags, module, code, 0, buffer.data(), atMostDword(buffer.size()), nullptr);
  const ErrorCode error = ::GetLastError();
  return {written != 0, written, error};
}

Result<std::uint32_t> WindowsText::ExpandEnvironmentStringsW(const std::wstring& source, std::span<wchar_t> buffer) {
  wchar_t* const target = buffer.empty() ? nullptr : buffer.data();
  const DWORD needed = ::ExpandEnvironmentStringsW(source.c_str(), target, atMostDword(buffer.size()));
  const ErrorCode error = ::GetLastError();
  return {needed != 0, needed, error};
}

}  // namespace platform
