#pragma once

#include <compare>
#include <type_traits>

#include "platform/text.h"
#include "tests/sim/kernel.h"

namespace sim {

/// Returns the number of a character. (wchar_t is signed on some systems.)
inline std::uint32_t codeOf(wchar_t character) {
  return static_cast<std::uint32_t>(std::char_traits<wchar_t>::to_int_type(character));
}

/// Returns the lower case of a character; the simulation knows ASCII, Latin-1, basic Greek and Cyrillic.
inline wchar_t lowerCase(wchar_t character) {
  const auto code = codeOf(character);
  const bool shifts = (code >= 'A' && code <= 'Z') || (code >= 0xC0 && code <= 0xDE && code != 0xD7) ||
                      (code >= 0x391 && code <= 0x3A9) || (code >= 0x410 && code <= 0x42F);
  return shifts ? static_cast<wchar_t>(code + 32) : character;
}

inline std::wstring lowerCase(std::wstring text) {
  for (wchar_t& character : text) {
    character = lowerCase(character);
  }
  return text;
}

/// Text services. The system's message for 5 is "Message 5.\r\n"; that of winhttp.dll for 12029 is "WinHTTP message
/// 12029.\r\n".
class Text : public platform::Text {
 public:
  explicit Text(Kernel& kernel)
      : kernel_(kernel),
        environment_{{L"programdata", L"C:\\ProgramData"},
                     {L"localappdata", L"C:\\Windows\\System32\\config\\systemprofile\\AppData\\Local"},
                     {L"systemroot", L"C:\\Windows"},
                     {L"temp", L"C:\\Windows\\Temp"}} {}

  /// Leaves a number without any message, so that FormatMessageW fails with error 317.
  void setUnknown(ErrorCode code) {
    const Guard guard(kernel_.mutex);
    unknown_.insert(code);
  }
  void setVariable(const std::wstring& name, const std::wstring& value) {
    const Guard guard(kernel_.mutex);
    environment_[lowerCase(name)] = value;
  }
  void eraseVariable(const std::wstring& name) {
    const Guard guard(kernel_.mutex);
    environment_.erase(lowerCase(name));
  }

  int CompareStringW(std::uint32_t, std::uint32_t flags, std::wstring_view first, std::wstring_view second) override {
    return kernel_.faults.pass(__func__) ? 0 : compare(first, second, (flags & kNormIgnoreCase) != 0);
  }
  int CompareStringA(std::uint32_t, std::uint32_t flags, std::string_view first, std::string_view second) override {
    return kernel_.faults.pass(__func__) ? 0 : compare(first, second, (flags & kNormIgnoreCase) != 0);
  }
  void CharLowerBuffW(std::span<wchar_t> text) override {
    kernel_.faults.note(__func__);
    std::ranges::transform(text, text.begin(), [](wchar_t character) { return lowerCase(character); });
  }
  void CharLowerBuffA(std::span<char> text) override {
    kernel_.faults.note(__func__);
    std::ranges::transform(text, text.begin(), [](char character) {
      return static_cast<char>(lowerCase(static_cast<wchar_t>(static_cast<unsigned char>(character))));
    });
  }
  Result<std::uint32_t> FormatMessageW(std::uint32_t flags, NativeHandle module, std::uint32_t code,
                                       std::span<wchar_t> buffer) override {
    return kernel_.call(__func__, [&] {
      const bool fromModule = (flags & kFormatMessageFromModule) != 0 && module != nullptr;
      const std::wstring text = (fromModule ? L"WinHTTP message " : L"Message ") + std::to_wstring(code) + L".\r\n";
      refuseIf(unknown_.contains(code), kErrorMessageNotFound);
      refuseIf(buffer.size() < text.size() + 1, kErrorInsufficientBuffer);
      return put(text, buffer);
    });
  }
  Result<std::uint32_t> ExpandEnvironmentStringsW(const std::wstring& source, std::span<wchar_t> buffer) override {
    return kernel_.call(__func__, [&] {
      std::wstring text;
      for (std::size_t at = 0; at < source.size();) {
        const auto end = source[at] == L'%' ? source.find(L'%', at + 1) : std::wstring::npos;
        const auto found = end == std::wstring::npos
                               ? environment_.end()
                               : environment_.find(lowerCase(source.substr(at + 1, end - at - 1)));
        text += found == environment_.end() ? source.substr(at, 1) : found->second;
        at = found == environment_.end() ? at + 1 : end + 1;
      }
      return (text.size() < buffer.size() ? put(text, buffer) : static_cast<std::uint32_t>(text.size())) + 1;
    });
  }

 private:
  static constexpr ErrorCode kErrorMessageNotFound = 317;  // ERROR_MR_MID_NOT_FOUND

  /// Returns the characters that count in a comparison: all but NUL and the soft hyphen, which have no weight. Each
  /// byte of a narrow text is a character of Latin-1.
  template <class Character>
  static std::wstring weighted(std::basic_string_view<Character> text) {
    std::wstring counting;
    for (const Character unit : text) {
      const auto character = static_cast<wchar_t>(static_cast<std::make_unsigned_t<Character>>(unit));
      counting += character == 0 || character == 0xAD ? L"" : std::wstring(1, character);
    }
    return counting;
  }

  /// Puts small letters before capitals where nothing else differs, as the linguistic order of Windows does.
  template <class View>
  static int compare(View firstText, View secondText, bool ignoreCase) {
    const std::wstring first = weighted(firstText), second = weighted(secondText);
    const auto byFolded = [](wchar_t a, wchar_t b) { return codeOf(lowerCase(a)) <=> codeOf(lowerCase(b)); };
    const auto folded =
        std::lexicographical_compare_three_way(first.begin(), first.end(), second.begin(), second.end(), byFolded);
    const std::strong_ordering order = folded != 0 || ignoreCase ? folded : second <=> first;
    return order < 0 ? 1 : order > 0 ? 3 : kCstrEqual;
  }

  /// Copies a text with its terminator. Returns the length without that.
  static std::uint32_t put(const std::wstring& text, std::span<wchar_t> buffer) {
    *std::ranges::copy(text, buffer.begin()).out = L'\0';
    return static_cast<std::uint32_t>(text.size());
  }

  Kernel& kernel_;
  std::set<ErrorCode> unknown_;
  std::map<std::wstring, std::wstring> environment_;  ///< names in lower case
};

}  // namespace sim
