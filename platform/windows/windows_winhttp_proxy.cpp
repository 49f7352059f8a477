// The calls of WinHTTP that find proxies.

#include "platform/windows/native.h"
#include "platform/windows/windows_winhttp.h"

// After windows.h, which it needs.
#include <winhttp.h>

namespace platform {
namespace {

void freeGlobal(void* memory) { ::GlobalFree(memory); }

/// Owner of a text of the global heap, freed with GlobalFree.
using GlobalText = UniqueHandle<NullHandleTraits<void*, freeGlobal>>;

std::wstring copyOf(const GlobalText& text) {
  return text ? std::wstring(static_cast<const wchar_t*>(text.get())) : std::wstring();
}

Result<ProxyInfo> proxyInfoOf(BOOL succeeded, const WINHTTP_PROXY_INFO& info, ErrorCode error) {
  const GlobalText proxy(info.lpszProxy);
  const GlobalText bypass(info.lpszProxyBypass);
  if (!succeeded) {
    return {false, {}, error};
  }
  return {true, {info.dwAccessType, copyOf(proxy), copyOf(bypass)}, error};
}

}  // namespace

Result<IeProxySettings> WindowsWinHttp::WinHttpGetIEProxyConfigForCurrentUser() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
  const BOOL read = ::WinHttpGetIEProxyConfigForCurrentUser(&config);
  const ErrorCode error = ::GetLastError();
  const GlobalText url(config.lpszAutoConfigUrl);
  const GlobalText proxy(config.lpszProxy);
  const GlobalText bypass(config.lpszProxyBypass);
  if (!read) {
    return {false, {}, error};
  }
  return {true, {config.fAutoDetect != FALSE, copyOf(url), copyOf(proxy), copyOf(bypass)}, error};
}

Result<std::wstring> WindowsWinHttp::WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) {
  wchar_t* found = nullptr;
  const BOOL detected = ::WinHttpDetectAutoProxyConfigUrl(flags, &found);
  const ErrorCode error = ::GetLastError();
  const GlobalText url(found);
  return {detected != FALSE, detected != FALSE ? copyOf(url) : std::wstring(), error};
}

Result<ProxyInfo> WindowsWinHttp::WinHttpGetDefaultProxyConfiguration() {
  WINHTTP_PROXY_INFO info{};
  const BOOL read = ::WinHttpGetDefaultProxyConfiguration(&info);
  const ErrorCode error = ::GetLastError();
  return proxyInfoOf(read, info, error);
}

Result<ProxyInfo> WindowsWinHttp::WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                                        const AutoProxyOptions& options) {
  WINHTTP_AUTOPROXY_OPTIONS question{};
  question.dwFlags = options.flags;
  question.dwAutoDetectFlags = options.detectFlags;
  question.lpszAutoConfigUrl = options.configUrl.empty() ? nullptr : options.configUrl.c_str();
  question.fAutoLogonIfChallenged = options.autoLogon ? TRUE : FALSE;
  WINHTTP_PROXY_INFO info{};
  const BOOL found = ::WinHttpGetProxyForUrl(session, url.c_str(), &question, &info);
  const ErrorCode error = ::GetLastError();
  return proxyInfoOf(found, info, error);
}

}  // namespace platform
