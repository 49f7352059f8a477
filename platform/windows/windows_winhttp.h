#pragma once

#include "platform/winhttp.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsWinHttp final : public WinHttp {
 public:
  Result<InternetHandle> WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType, const std::wstring& proxy,
                                     const std::wstring& bypass, std::uint32_t flags) override;
  Status WinHttpSetTimeouts(NativeHandle session, int resolve, int connect, int send, int receive) override;
  Status WinHttpSetStatusCallback(NativeHandle handle, StatusCallback callback, std::uint32_t mask) override;
  Result<InternetHandle> WinHttpConnect(NativeHandle session, const std::wstring& host, std::uint16_t port) override;
  Result<InternetHandle> WinHttpOpenRequest(NativeHandle connection, const std::wstring& verb, const std::wstring& path,
                                            std::uint32_t flags) override;
  Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, std::uint32_t value) override;
  Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, const std::wstring& value) override;
  Status WinHttpSendRequest(NativeHandle request, const std::wstring& headers, std::span<const std::byte> optionalData,
                            std::uint32_t totalLength, std::uintptr_t context) override;
  Status WinHttpReceiveResponse(NativeHandle request) override;
  Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level) override;
  Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level,
                                            std::span<wchar_t> buffer) override;
  Status WinHttpQueryDataAvailable(NativeHandle request) override;
  Status WinHttpReadData(NativeHandle request, std::span<std::byte> buffer) override;
  Status WinHttpWriteData(NativeHandle request, std::span<const std::byte> data) override;
  Status WinHttpCloseHandle(NativeHandle handle) override;
  Result<NativeHandle> WinHttpQueryOption(NativeHandle request, std::uint32_t option) override;
  Result<IeProxySettings> WinHttpGetIEProxyConfigForCurrentUser() override;
  Result<std::wstring> WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) override;
  Result<ProxyInfo> WinHttpGetDefaultProxyConfiguration() override;
  Result<ProxyInfo> WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                          const AutoProxyOptions& options) override;
  Result<UrlComponents> WinHttpCrackUrl(const std::wstring& url) override;
};

}  // namespace platform
