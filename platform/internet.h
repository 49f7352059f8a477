#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

namespace platform {

/// A URL taken apart. Which members are filled, each call says.
struct UrlComponents {
  std::uint32_t schemeNumber = 0;  ///< 1 HTTP, 2 HTTPS (INTERNET_SCHEME of WinHTTP)
  std::wstring scheme;
  std::wstring host;
  std::uint16_t port = 0;
  std::wstring path;
  std::wstring extra;  ///< from the "?" or "#" on
};

/// URL services of WinINet and urlmon. Every operation is one platform call of that name; any thread may call.
class Internet {
 public:
  virtual ~Internet() = default;

  /// urlmon: S_OK (0) for a valid URL, otherwise another HRESULT.
  virtual std::int32_t IsValidURL(const std::wstring& url) = 0;
  /// WinINet: fills scheme, host, port and path.
  virtual Result<UrlComponents> InternetCrackUrlW(const std::wstring& url) = 0;
};

}  // namespace platform
