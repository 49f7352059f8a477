#pragma once

#include "platform/internet.h"
#include "platform/winhttp.h"
#include "tests/sim/kernel.h"
#include "tests/sim/text.h"

namespace sim {

/// Takes a URL apart. As WinHttpCrackUrl it fails with kErrorWinHttpUnrecognizedScheme for a scheme that is neither
/// http nor https, and with kErrorWinHttpInvalidUrl for what is not a URL.
inline UrlComponents splitUrl(const std::wstring& url) {
  const auto colon = std::min(url.find(L':'), url.size());
  UrlComponents parts;
  parts.scheme = url.substr(0, colon);
  const bool secure = lowerCase(parts.scheme) == L"https";
  refuseIf(!secure && lowerCase(parts.scheme) != L"http", kErrorWinHttpUnrecognizedScheme);
  parts.schemeNumber = secure ? kSchemeHttps : kSchemeHttp;
  refuseIf(url.compare(colon, 3, L"://") != 0, kErrorWinHttpInvalidUrl);
  const auto end = std::min(url.find_first_of(L"/?#\\", colon + 3), url.size());
  const auto extra = std::min(url.find_first_of(L"?#", end), url.size());
  parts.path = url.substr(end, extra - end);
  parts.extra = url.substr(extra);
  std::wstring authority = url.substr(colon + 3, end - colon - 3);
  authority.erase(0, authority.rfind(L'@') + 1);
  const auto hostEnd = std::min(authority.find(L':', authority.find(L']') + 1), authority.size());
  parts.host = authority.substr(0, hostEnd);
  const std::wstring port = hostEnd + 1 < authority.size() ? authority.substr(hostEnd + 1) : secure ? L"443" : L"80";
  const bool isNumber = port.size() <= 5 && port.find_first_not_of(L"0123456789") == std::wstring::npos;
  refuseIf(!isNumber || std::stoul(port) > 65535 || parts.host.empty() || parts.host.find(L' ') != parts.host.npos,
           kErrorWinHttpInvalidUrl);
  parts.port = static_cast<std::uint16_t>(std::stoul(port));
  return parts;
}

/// URL services of WinINet and urlmon.
class Internet : public platform::Internet {
 public:
  explicit Internet(Kernel& kernel) : kernel_(kernel) {}

  /// Returns S_OK for an absolute URL, S_FALSE (1) for any other text.
  std::int32_t IsValidURL(const std::wstring& url) override {
    if (const auto error = kernel_.faults.pass(__func__)) {
      return static_cast<std::int32_t>(0x80070000 | *error);
    }
    const auto colon = url.find(L"://");
    return colon != std::wstring::npos && colon > 1 && url.size() > colon + 3 ? kSOk : 1;
  }
  Result<UrlComponents> InternetCrackUrlW(const std::wstring& url) override {
    return kernel_.call(__func__, [&] {
      auto parts = splitUrl(url);
      parts.path += std::exchange(parts.extra, L"");  // the program asks for no extra, so it stays with the path
      return parts;
    });
  }

 private:
  Kernel& kernel_;
};

}  // namespace sim
