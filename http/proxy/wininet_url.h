#pragma once

#include <cstdint>
#include <string>

namespace util {

/// URL services of WinINet. Stateless; any thread.
class WinInet {
 public:
  /// Splits a URL for the choice of a proxy; one without "//" gets the default scheme, HTTPS or plain HTTP.
  /// \return false when it holds a blank anywhere, or when the platform cannot parse it: the reason is logged, and the
  ///         outputs are empty.
  /// Source: InternetCrackUrlW.
  static bool CrackUrl(const std::wstring& url, std::wstring& scheme, std::wstring& host, std::uint16_t& port,
                       std::wstring& path, bool plainHttpDefault);
};

}  // namespace util
