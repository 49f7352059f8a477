#include "tests/sim/internet.h"

#include <algorithm>
#include <cctype>

#include "platform/winhttp.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

bool isSchemeText(const std::wstring& text) {
  return !text.empty() && text[0] < 128 && std::isalpha(static_cast<int>(text[0])) != 0 &&
         std::all_of(text.begin(), text.end(), [](wchar_t character) {
           return character < 128 && (std::isalnum(static_cast<int>(character)) != 0 || character == L'+' ||
                                      character == L'-' || character == L'.');
         });
}

/// The number behind a colon at the end of `authority`, which is cut off; nothing when it is no port.
std::optional<std::uint16_t> takePort(std::wstring& authority, std::uint16_t standard) {
  const auto colon = authority.rfind(L':');
  if (colon == std::wstring::npos || authority.find(L']', colon) != std::wstring::npos) {
    return standard;
  }
  const std::wstring digits = authority.substr(colon + 1);
  authority.resize(colon);
  if (digits.empty()) {
    return standard;
  }
  std::uint32_t port = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9' || port > 65535) {
      return std::nullopt;
    }
    port = port * 10 + static_cast<std::uint32_t>(digit - L'0');
  }
  return port > 65535 ? std::nullopt : std::optional(static_cast<std::uint16_t>(port));
}

}  // namespace

platform::Result<platform::UrlComponents> splitUrl(const std::wstring& url) {
  const auto colon = url.find(L':');
  if (colon == std::wstring::npos || !isSchemeText(url.substr(0, colon))) {
    return {false, {}, platform::kErrorWinHttpUnrecognizedScheme};
  }
  platform::UrlComponents parts;
  parts.scheme = url.substr(0, colon);
  const std::wstring scheme = lowerCase(parts.scheme);
  if (scheme != L"http" && scheme != L"https") {
    return {false, {}, platform::kErrorWinHttpUnrecognizedScheme};
  }
  parts.schemeNumber = scheme == L"https" ? platform::kSchemeHttps : platform::kSchemeHttp;
  if (url.compare(colon, 3, L"://") != 0) {
    return {false, {}, platform::kErrorWinHttpInvalidUrl};
  }
  const auto end = std::min(url.find_first_of(L"/?#\\", colon + 3), url.size());
  std::wstring authority = url.substr(colon + 3, end - colon - 3);
  authority.erase(0, authority.rfind(L'@') + 1);
  const auto port = takePort(authority, parts.schemeNumber == platform::kSchemeHttps ? 443 : 80);
  if (!port || authority.empty() || authority.find(L' ') != std::wstring::npos) {
    return {false, {}, platform::kErrorWinHttpInvalidUrl};
  }
  parts.port = *port;
  parts.host = authority;
  const auto extra = std::min(url.find_first_of(L"?#", end), url.size());
  parts.path = url.substr(end, extra - end);
  parts.extra = url.substr(extra);
  return {true, parts, 0};
}

std::int32_t Internet::IsValidURL(const std::wstring& url) {
  if (const auto error = kernel_.faults.pass("IsValidURL")) {
    return static_cast<std::int32_t>(0x80070000 | *error);
  }
  if (validUrlResult) {
    return *validUrlResult;
  }
  const auto colon = url.find(L':');
  const bool absolute = colon != std::wstring::npos && colon > 1 && isSchemeText(url.substr(0, colon));
  return absolute && url.compare(colon, 3, L"://") == 0 && url.size() > colon + 3 ? 0 : 1;
}

platform::Result<platform::UrlComponents> Internet::InternetCrackUrlW(const std::wstring& url) {
  if (const auto error = kernel_.faults.pass("InternetCrackUrlW")) {
    return {false, {}, *error};
  }
  auto parts = splitUrl(url);
  parts.value.path += parts.value.extra;  // without a pointer for it, the extra part stays with the path
  parts.value.extra.clear();
  return parts;
}

}  // namespace sim
