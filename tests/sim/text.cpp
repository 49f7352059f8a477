#include "tests/sim/text.h"

#include <algorithm>

namespace sim {
namespace {

constexpr platform::ErrorCode kErrorMessageNotFound = 317;  // ERROR_MR_MID_NOT_FOUND

/// Small letters before capitals where nothing else differs, as the platform's linguistic order has it.
template <class View>
int compare(View first, View second, bool ignoreCase) {
  std::wstring one(first.begin(), first.end());
  std::wstring other(second.begin(), second.end());
  const int folded = lowerCase(one).compare(lowerCase(other));
  const int order = folded != 0 || ignoreCase ? folded : -one.compare(other);
  return order < 0 ? 1 : order == 0 ? platform::kCstrEqual : 3;
}

platform::Result<std::uint32_t> put(const std::wstring& text, std::span<wchar_t> buffer) {
  if (buffer.size() < text.size() + 1) {
    return {false, 0, platform::kErrorInsufficientBuffer};
  }
  *std::copy(text.begin(), text.end(), buffer.begin()) = L'\0';
  return {true, static_cast<std::uint32_t>(text.size()), 0};
}

}  // namespace

wchar_t lowerCase(wchar_t character) {
  const auto code = codeOf(character);
  const bool shifts = (code >= 'A' && code <= 'Z') || (code >= 0xC0 && code <= 0xDE && code != 0xD7) ||
                      (code >= 0x391 && code <= 0x3A9) || (code >= 0x410 && code <= 0x42F);
  return shifts ? static_cast<wchar_t>(code + 32) : character;
}

std::wstring lowerCase(std::wstring text) {
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t character) { return lowerCase(character); });
  return text;
}

Text::Text(Kernel& kernel)
    : kernel_(kernel),
      environment_{{L"programdata", L"C:\\ProgramData"},
                   {L"localappdata", L"C:\\Windows\\System32\\config\\systemprofile\\AppData\\Local"},
                   {L"systemroot", L"C:\\Windows"},
                   {L"temp", L"C:\\Windows\\Temp"}} {}

void Text::setMessage(platform::ErrorCode code, const std::wstring& text) {
  const Guard guard(kernel_.mutex);
  messages_[code] = text;
}

void Text::setModuleMessage(platform::ErrorCode code, const std::wstring& text) {
  const Guard guard(kernel_.mutex);
  moduleMessages_[code] = text;
}

void Text::setUnknown(platform::ErrorCode code) {
  setMessage(code, L"");
  setModuleMessage(code, L"");
}

void Text::setVariable(const std::wstring& name, const std::wstring& value) {
  const Guard guard(kernel_.mutex);
  environment_[lowerCase(name)] = value;
}

void Text::eraseVariable(const std::wstring& name) {
  const Guard guard(kernel_.mutex);
  environment_.erase(lowerCase(name));
}

int Text::CompareStringW(std::uint32_t, std::uint32_t flags, std::wstring_view first, std::wstring_view second) {
  if (kernel_.faults.pass("CompareStringW")) {
    return 0;
  }
  return compare(first, second, (flags & platform::kNormIgnoreCase) != 0);
}

int Text::CompareStringA(std::uint32_t, std::uint32_t flags, std::string_view first, std::string_view second) {
  if (kernel_.faults.pass("CompareStringA")) {
    return 0;
  }
  return compare(first, second, (flags & platform::kNormIgnoreCase) != 0);
}

void Text::CharLowerBuffW(std::span<wchar_t> text) {
  kernel_.faults.note("CharLowerBuffW");
  std::transform(text.begin(), text.end(), text.begin(), [](wchar_t character) { return lowerCase(character); });
}

void Text::CharLowerBuffA(std::span<char> text) {
  kernel_.faults.note("CharLowerBuffA");
  std::transform(text.begin(), text.end(), text.begin(), [](char character) {
    return static_cast<char>(lowerCase(static_cast<wchar_t>(static_cast<unsigned char>(character))));
  });
}

platform::Result<std::uint32_t> Text::FormatMessageW(std::uint32_t flags, platform::NativeHandle module,
                                                     std::uint32_t code, std::span<wchar_t> buffer) {
  if (const auto error = kernel_.faults.pass("FormatMessageW")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  const bool fromModule = (flags & platform::kFormatMessageFromModule) != 0 && module != nullptr;
  const auto& table = fromModule ? moduleMessages_ : messages_;
  const auto found = table.find(code);
  const std::wstring text = found != table.end() ? found->second
                            : fromModule         ? L"WinHTTP message " + std::to_wstring(code) + L".\r\n"
                                                 : L"Message " + std::to_wstring(code) + L".\r\n";
  return text.empty() ? platform::Result<std::uint32_t>{false, 0, kErrorMessageNotFound} : put(text, buffer);
}

platform::Result<std::uint32_t> Text::ExpandEnvironmentStringsW(const std::wstring& source, std::span<wchar_t> buffer) {
  if (const auto error = kernel_.faults.pass("ExpandEnvironmentStringsW")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  std::wstring text;
  for (std::size_t at = 0; at < source.size();) {
    const auto end = source[at] == L'%' ? source.find(L'%', at + 1) : std::wstring::npos;
    const auto found = end == std::wstring::npos ? environment_.end()
                                                 : environment_.find(lowerCase(source.substr(at + 1, end - at - 1)));
    if (found != environment_.end()) {
      text += found->second;
      at = end + 1;
    } else {
      text += source[at++];
    }
  }
  put(text, buffer);
  return {true, static_cast<std::uint32_t>(text.size() + 1), 0};
}

}  // namespace sim
