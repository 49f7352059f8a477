// Where the simulated WinHTTP finds proxies.
#include "tests/sim/http_handles.h"

namespace sim {

Result<platform::IeProxySettings> WinHttp::WinHttpGetIEProxyConfigForCurrentUser() {
  return kernel_.call("WinHttpGetIEProxyConfigForCurrentUser", [&] {
    return Result<platform::IeProxySettings>{true, proxies.ie, 0};
  });
}

Result<std::wstring> WinHttp::WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) {
  return kernel_.call("WinHttpDetectAutoProxyConfigUrl", [&]() -> Result<std::wstring> {
    if (flags == 0 || (flags & ~platform::kAutoDetectDhcpAndDnsA) != 0) {
      return Failure{platform::kErrorInvalidParameter};
    }
    if (proxies.wpadUrl.empty()) {
      return Failure{platform::kErrorWinHttpAutodetectionFailed};
    }
    return {true, proxies.wpadUrl, 0};
  });
}

Result<platform::ProxyInfo> WinHttp::WinHttpGetDefaultProxyConfiguration() {
  return kernel_.call("WinHttpGetDefaultProxyConfiguration", [&] {
    platform::ProxyInfo info = proxies.winHttpDefault;
    info.accessType = info.proxy.empty() ? platform::kAccessTypeNoProxy : platform::kAccessTypeNamedProxy;
    return Result<platform::ProxyInfo>{true, info, 0};
  });
}

Result<platform::ProxyInfo> WinHttp::WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                                           const platform::AutoProxyOptions& options) {
  const auto work = [&](HttpSessionHandle&, Guard& guard) -> Result<platform::ProxyInfo> {
    if (options.flags != platform::kAutoProxyConfigUrl || options.detectFlags != 0 || options.configUrl.empty()) {
      return Failure{platform::kErrorInvalidParameter};
    }
    const auto file = proxies.pacFiles.find(options.configUrl);
    if (file == proxies.pacFiles.end()) {
      return Failure{platform::kErrorWinHttpUnableToDownloadScript};
    }
    const auto findProxy = file->second;
    guard.unlock();
    const std::wstring proxy = findProxy(url);
    return {true, {proxy.empty() ? platform::kAccessTypeNoProxy : platform::kAccessTypeNamedProxy, proxy, {}}, 0};
  };
  return kernel_.callOn<HttpSessionHandle>("WinHttpGetProxyForUrl", session, work);
}

}  // namespace sim
