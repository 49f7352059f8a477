#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/internet.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kAccessTypeNoProxy = 1;         ///< WINHTTP_ACCESS_TYPE_NO_PROXY
inline constexpr std::uint32_t kAccessTypeNamedProxy = 3;      ///< WINHTTP_ACCESS_TYPE_NAMED_PROXY
inline constexpr std::uint32_t kAccessTypeAutomaticProxy = 4;  ///< WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY
inline constexpr std::uint32_t kWinHttpFlagAsync = 0x10000000;
inline constexpr std::uint32_t kWinHttpFlagBypassProxyCache = 0x100;
inline constexpr std::uint32_t kWinHttpFlagSecure = 0x800000;

inline constexpr std::uint32_t kSchemeHttp = 1;   ///< INTERNET_SCHEME_HTTP of WinHTTP
inline constexpr std::uint32_t kSchemeHttps = 2;  ///< INTERNET_SCHEME_HTTPS of WinHTTP

// Options of WinHttpSetOption.
inline constexpr std::uint32_t kOptionSecurityFlags = 31;
inline constexpr std::uint32_t kOptionEnableFeature = 79;
inline constexpr std::uint32_t kOptionProxyUsername = 0x1002;
inline constexpr std::uint32_t kOptionProxyPassword = 0x1003;
inline constexpr std::uint32_t kEnableSslRevocation = 1;

// Options of WinHttpQueryOption.
inline constexpr std::uint32_t kOptionServerCertContext = 78;
inline constexpr std::uint32_t kOptionServerCertChainContext = 147;

// Flags of WinHttpGetProxyForUrl, and the two ways of detection together.
inline constexpr std::uint32_t kAutoProxyConfigUrl = 2;     ///< WINHTTP_AUTOPROXY_CONFIG_URL
inline constexpr std::uint32_t kAutoDetectDhcpAndDnsA = 3;  ///< WINHTTP_AUTO_DETECT_TYPE_DHCP and _DNS_A

inline constexpr std::uint32_t kSecurityFlagIgnoreUnknownCa = 0x100;
inline constexpr std::uint32_t kSecurityFlagIgnoreCertCnInvalid = 0x1000;
inline constexpr std::uint32_t kSecurityFlagIgnoreAll =
    0x3300;  ///< unknown CA, wrong usage, name invalid, date invalid

// Information levels of WinHttpQueryHeaders.
inline constexpr std::uint32_t kQueryStatusCode = 19;
inline constexpr std::uint32_t kQueryFlagNumber = 0x20000000;
inline constexpr std::uint32_t kQueryRawHeadersCrlf = 22;

// Statuses of the callback.
inline constexpr std::uint32_t kStatusSendingRequest = 0x10;
inline constexpr std::uint32_t kStatusRequestSent = 0x20;
inline constexpr std::uint32_t kStatusHandleCreated = 0x400;
inline constexpr std::uint32_t kStatusHandleClosing = 0x800;
inline constexpr std::uint32_t kStatusSecureFailure = 0x10000;
inline constexpr std::uint32_t kStatusHeadersAvailable = 0x20000;
inline constexpr std::uint32_t kStatusDataAvailable = 0x40000;
inline constexpr std::uint32_t kStatusReadComplete = 0x80000;
inline constexpr std::uint32_t kStatusWriteComplete = 0x100000;
inline constexpr std::uint32_t kStatusRequestError = 0x200000;
inline constexpr std::uint32_t kStatusSendRequestComplete = 0x400000;

// Error numbers of WinHTTP.
inline constexpr ErrorCode kErrorWinHttpTimeout = 12002;
inline constexpr ErrorCode kErrorWinHttpInvalidUrl = 12005;
inline constexpr ErrorCode kErrorWinHttpUnrecognizedScheme = 12006;
inline constexpr ErrorCode kErrorWinHttpNameNotResolved = 12007;
inline constexpr ErrorCode kErrorWinHttpInvalidOption = 12009;
inline constexpr ErrorCode kErrorWinHttpOperationCancelled = 12017;
inline constexpr ErrorCode kErrorWinHttpIncorrectHandleState = 12019;
inline constexpr ErrorCode kErrorWinHttpCannotConnect = 12029;
inline constexpr ErrorCode kErrorWinHttpConnectionError = 12030;
inline constexpr ErrorCode kErrorWinHttpInvalidServerResponse = 12152;
inline constexpr ErrorCode kErrorWinHttpSecureFailure = 12175;
inline constexpr ErrorCode kErrorWinHttpUnableToDownloadScript = 12167;
inline constexpr ErrorCode kErrorWinHttpAutodetectionFailed = 12180;

/// Layout of WINHTTP_ASYNC_RESULT, which REQUEST_ERROR points to: the API's number (1 to 5) and the error.
struct AsyncResult {
  std::uintptr_t result;
  std::uint32_t error;
};

/// WINHTTP_CURRENT_USER_IE_PROXY_CONFIG; an absent text is empty.
struct IeProxySettings {
  bool autoDetect = false;
  std::wstring autoConfigUrl;
  std::wstring proxy;
  std::wstring proxyBypass;
};

/// WINHTTP_PROXY_INFO; an absent text is empty.
struct ProxyInfo {
  std::uint32_t accessType = 0;
  std::wstring proxy;
  std::wstring bypass;
};

/// WINHTTP_AUTOPROXY_OPTIONS.
struct AutoProxyOptions {
  std::uint32_t flags = 0;
  std::uint32_t detectFlags = 0;
  std::wstring configUrl;
  bool autoLogon = false;
};

/// The status callback. Runs on WinHTTP's worker threads, or on the calling thread inside the very call that asked.
/// `information` depends on the status: the number (32 bits) of bytes for DATA_AVAILABLE and WRITE_COMPLETE, the read
/// buffer for READ_COMPLETE (whose length is `informationLength`), AsyncResult for REQUEST_ERROR, the bits (32) for
/// SECURE_FAILURE.
using StatusCallback = void (*)(NativeHandle handle, std::uintptr_t context, std::uint32_t status, void* information,
                                std::uint32_t informationLength);

void closeInternetHandle(NativeHandle handle);

/// Owner of a WinHTTP session, connection or request, closed with WinHttpCloseHandle.
using InternetHandle = UniqueHandle<NullHandleTraits<NativeHandle, closeInternetHandle>>;

/// The HTTP client of the platform. Every operation is one platform call of that name; any thread may call.
class WinHttp {
 public:
  virtual ~WinHttp() = default;

  /// Empty proxy and bypass pass "none".
  virtual Result<InternetHandle> WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType,
                                             const std::wstring& proxy, const std::wstring& bypass,
                                             std::uint32_t flags) = 0;
  /// Milliseconds each, as the platform takes them: signed.
  virtual Status WinHttpSetTimeouts(NativeHandle session, int resolve, int connect, int send, int receive) = 0;
  /// ok: the result was not WINHTTP_INVALID_STATUS_CALLBACK. The whole process uses one callback function.
  virtual Status WinHttpSetStatusCallback(NativeHandle handle, StatusCallback callback, std::uint32_t mask) = 0;
  virtual Result<InternetHandle> WinHttpConnect(NativeHandle session, const std::wstring& host, std::uint16_t port) = 0;
  /// Without version, referrer and accept types.
  virtual Result<InternetHandle> WinHttpOpenRequest(NativeHandle connection, const std::wstring& verb,
                                                    const std::wstring& path, std::uint32_t flags) = 0;
  /// A 32-bit option.
  virtual Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, std::uint32_t value) = 0;
  /// A text option. What the layer copies of it is wiped: it may be a password.
  virtual Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, const std::wstring& value) = 0;
  /// `optionalData` stays the caller's until the request handle is closed; empty passes none.
  virtual Status WinHttpSendRequest(NativeHandle request, const std::wstring& headers,
                                    std::span<const std::byte> optionalData, std::uint32_t totalLength,
                                    std::uintptr_t context) = 0;
  virtual Status WinHttpReceiveResponse(NativeHandle request) = 0;
  /// A number (kQueryFlagNumber in `level`).
  virtual Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level) = 0;
  /// A text. value: bytes needed with the terminator when the buffer is short (ERROR_INSUFFICIENT_BUFFER, 122), bytes
  /// written without it on success. An empty buffer passes none.
  virtual Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level,
                                                    std::span<wchar_t> buffer) = 0;
  virtual Status WinHttpQueryDataAvailable(NativeHandle request) = 0;
  /// `buffer` stays the caller's until READ_COMPLETE or the closing of the request.
  virtual Status WinHttpReadData(NativeHandle request, std::span<std::byte> buffer) = 0;
  /// `data` stays the caller's until WRITE_COMPLETE or the closing of the request.
  virtual Status WinHttpWriteData(NativeHandle request, std::span<const std::byte> data) = 0;
  virtual Status WinHttpCloseHandle(NativeHandle handle) = 0;

  /// An option that is a context: the server's certificate (a PCCERT_CONTEXT) or chain (a PCCERT_CHAIN_CONTEXT), which
  /// becomes the caller's.
  virtual Result<NativeHandle> WinHttpQueryOption(NativeHandle request, std::uint32_t option) = 0;

  // Texts that these four return are copied, and the platform's own freed with GlobalFree.
  virtual Result<IeProxySettings> WinHttpGetIEProxyConfigForCurrentUser() = 0;
  /// value: the PAC URL.
  virtual Result<std::wstring> WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) = 0;
  virtual Result<ProxyInfo> WinHttpGetDefaultProxyConfiguration() = 0;
  virtual Result<ProxyInfo> WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                                  const AutoProxyOptions& options) = 0;

  /// Flags 0. Fills scheme number, scheme, host, port, path and extra.
  virtual Result<UrlComponents> WinHttpCrackUrl(const std::wstring& url) = 0;
};

}  // namespace platform
