#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"

namespace platform {

inline constexpr std::int32_t kSOk = 0;  ///< S_OK, the HRESULT of success

/// The parts of a URL. Each call says which of them it fills.
struct UrlComponents {
  std::uint32_t schemeNumber = 0;  ///< kSchemeHttp or kSchemeHttps of platform/winhttp.h
  std::wstring scheme;
  std::wstring host;
  std::uint16_t port = 0;
  std::wstring path;
  std::wstring extra;  ///< begins with "?" or "#"
};

/// URL services of WinINet and urlmon. Every operation is one platform call of that name; any thread may call.
class Internet {
 public:
  virtual ~Internet() = default;

  /// Checks a URL by urlmon.
  /// \return kSOk for a valid URL, otherwise another HRESULT.
  virtual std::int32_t IsValidURL(const std::wstring& url) = 0;
  /// Takes a URL apart by WinINet. Fills the scheme, the host, the port and the path.
  virtual Result<UrlComponents> InternetCrackUrlW(const std::wstring& url) = 0;
};

}  // namespace platform
