#include "core/text/text.h"

#include <cwchar>

#include "platform/platform.h"
#include "platform/text.h"

namespace CORE {

bool equalText(std::wstring_view first, std::wstring_view second, bool ignoreCase) {
  if (first.size() != second.size()) {
    return false;
  }
  return first == second ||  // the platform would say so too, but takes longer
         platform::current().text.CompareStringW(platform::kLocaleUserDefault,
                                                 ignoreCase ? platform::kNormIgnoreCase : 0, first,
                                                 second) == platform::kCstrEqual;
}

bool equalNarrow(std::string_view first, std::string_view second) {
  if (first.size() != second.size()) {
    return false;
  }
  return platform::current().text.CompareStringA(platform::kLocaleUserDefault, 0, first, second) ==
         platform::kCstrEqual;
}

std::wstring lowered(std::wstring_view text) {
  std::wstring out(text);
  platform::current().text.CharLowerBuffW(out);
  return out;
}

std::string loweredNarrow(std::string_view text) {
  std::string out(text);
  platform::current().text.CharLowerBuffA(out);
  return out;
}

std::vector<std::wstring> splitText(std::wstring_view text, wchar_t separator) {
  std::vector<std::wstring> out;
  for (;;) {
    const std::size_t end = text.find(separator);
    out.emplace_back(text.substr(0, end));
    if (end == std::wstring_view::npos) {
      return out;
    }
    text.remove_prefix(end + 1);
  }
}

std::wstring joinStrings(const std::vector<std::wstring>& strings, std::wstring_view separator) {
  std::wstring out;
  for (std::size_t i = 0; i < strings.size(); ++i) {
    if (i != 0) {
      out += separator;
    }
    out += strings[i];
  }
  return out;
}

std::wstring_view trimmed(std::wstring_view text, std::wstring_view characters) {
  const std::size_t first = text.find_first_not_of(characters);
  if (first == std::wstring_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

bool textToBool(std::wstring_view text) {
  const std::wstring word(trimmed(text));
  return equalText(word, L"true", true) || equalText(word, L"yes", true) || equalText(word, L"on", true) ||
         std::wcstol(word.c_str(), nullptr, 0) != 0;
}

}  // namespace CORE
