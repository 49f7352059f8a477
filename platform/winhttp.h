#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/internet.h"
#include "platform/result.h"

namespace platform {

// Access types of WinHttpOpen and of ProxyInfo (WINHTTP_ACCESS_TYPE_...).
inline constexpr std::uint32_t kAccessTypeNoProxy = 1;
inline constexpr std::uint32_t kAccessTypeNamedProxy = 3;
inline constexpr std::uint32_t kAccessTypeAutomaticProxy = 4;

// Flags of WinHttpOpen (the first one) and of WinHttpOpenRequest (WINHTTP_FLAG_...).
inline constexpr std::uint32_t kWinHttpFlagAsync = 0x10000000;
inline constexpr std::uint32_t kWinHttpFlagBypassProxyCache = 0x100;
inline constexpr std::uint32_t kWinHttpFlagSecure = 0x800000;

inline constexpr std::uint32_t kSchemeHttp = 1;   ///< INTERNET_SCHEME_HTTP of WinHTTP
inline constexpr std::uint32_t kSchemeHttps = 2;  ///< INTERNET_SCHEME_HTTPS of WinHTTP

// Options of WinHttpSetOption (WINHTTP_OPTION_...), and the values of kOptionEnableFeature and kOptionRedirectPolicy
// that the program sets.
inline constexpr std::uint32_t kOptionSecurityFlags = 31;
inline constexpr std::uint32_t kOptionEnableFeature = 79;
inline constexpr std::uint32_t kOptionRedirectPolicy = 88;
inline constexpr std::uint32_t kOptionProxyUsername = 0x1002;
inline constexpr std::uint32_t kOptionProxyPassword = 0x1003;
inline constexpr std::uint32_t kEnableSslRevocation = 1;  ///< WINHTTP_ENABLE_SSL_REVOCATION
inline constexpr std::uint32_t kRedirectPolicyNever = 0;  ///< WINHTTP_OPTION_REDIRECT_POLICY_NEVER

// Options of WinHttpQueryOption (WINHTTP_OPTION_...).
inline constexpr std::uint32_t kOptionServerCertContext = 78;
inline constexpr std::uint32_t kOptionServerCertChainContext = 147;

// The flag of WinHttpGetProxyForUrl that names a PAC URL, and both ways of WinHttpDetectAutoProxyConfigUrl together.
inline constexpr std::uint32_t kAutoProxyConfigUrl = 2;     ///< WINHTTP_AUTOPROXY_CONFIG_URL
inline constexpr std::uint32_t kAutoDetectDhcpAndDnsA = 3;  ///< WINHTTP_AUTO_DETECT_TYPE_DHCP and _DNS_A

// Certificate errors that kOptionSecurityFlags forgives (SECURITY_FLAG_IGNORE_...). SslPolicy::checks takes them too.
inline constexpr std::uint32_t kSecurityFlagIgnoreUnknownCa = 0x100;
inline constexpr std::uint32_t kSecurityFlagIgnoreCertWrongUsage = 0x200;
inline constexpr std::uint32_t kSecurityFlagIgnoreCertCnInvalid = 0x1000;
inline constexpr std::uint32_t kSecurityFlagIgnoreCertDateInvalid = 0x2000;
inline constexpr std::uint32_t kSecurityFlagIgnoreAll =
    kSecurityFlagIgnoreUnknownCa | kSecurityFlagIgnoreCertWrongUsage | kSecurityFlagIgnoreCertCnInvalid |
    kSecurityFlagIgnoreCertDateInvalid;

// Information levels of WinHttpQueryHeaders (WINHTTP_QUERY_...).
inline constexpr std::uint32_t kQueryStatusCode = 19;
inline constexpr std::uint32_t kQueryFlagNumber = 0x20000000;
inline constexpr std::uint32_t kQueryRawHeadersCrlf = 22;

// Status codes of HTTP that the program distinguishes (HTTP_STATUS_...). Every code from the first to the last success
// says that the server has done what it was asked.
inline constexpr std::uint32_t kHttpStatusFirstSuccess = 200;
inline constexpr std::uint32_t kHttpStatusCreated = 201;
inline constexpr std::uint32_t kHttpStatusLastSuccess = 299;

// Statuses of the callback (WINHTTP_CALLBACK_STATUS_...); the mask of WinHttpSetStatusCallback is made of them.
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
inline constexpr std::uint32_t kStatusGetProxyForUrlComplete = 0x1000000;
inline constexpr std::uint32_t kStatusGetProxySettingsComplete = 0x8000000;

// Groups of statuses (WINHTTP_CALLBACK_FLAG_...).
inline constexpr std::uint32_t kCallbackFlagAllCompletions =
    kStatusSendRequestComplete | kStatusHeadersAvailable | kStatusDataAvailable | kStatusReadComplete |
    kStatusWriteComplete | kStatusRequestError | kStatusGetProxyForUrlComplete | kStatusGetProxySettingsComplete;
inline constexpr std::uint32_t kCallbackFlagHandles = kStatusHandleCreated | kStatusHandleClosing;

/// What every exchange asks to be notified of: 0x097F0C00.
inline constexpr std::uint32_t kNotificationMask =
    kCallbackFlagAllCompletions | kCallbackFlagHandles | kStatusSecureFailure;

// The reasons of a SECURE_FAILURE, one bit each (WINHTTP_CALLBACK_STATUS_FLAG_...).
inline constexpr std::uint32_t kSecureFailureCertRevFailed = 0x1;
inline constexpr std::uint32_t kSecureFailureInvalidCert = 0x2;
inline constexpr std::uint32_t kSecureFailureCertRevoked = 0x4;
inline constexpr std::uint32_t kSecureFailureInvalidCa = 0x8;
inline constexpr std::uint32_t kSecureFailureCertCnInvalid = 0x10;
inline constexpr std::uint32_t kSecureFailureCertDateInvalid = 0x20;
inline constexpr std::uint32_t kSecureFailureCertWrongUsage = 0x40;
inline constexpr std::uint32_t kSecureFailureSecurityChannelError = 0x80000000;

// The calls that AsyncResult::result distinguishes (API_...).
inline constexpr std::uintptr_t kApiReceiveResponse = 1;
inline constexpr std::uintptr_t kApiQueryDataAvailable = 2;
inline constexpr std::uintptr_t kApiReadData = 3;
inline constexpr std::uintptr_t kApiWriteData = 4;
inline constexpr std::uintptr_t kApiSendRequest = 5;

// Error numbers of WinHTTP (ERROR_WINHTTP_...).
inline constexpr ErrorCode kErrorWinHttpTimeout = 12002;
inline constexpr ErrorCode kErrorWinHttpInvalidUrl = 12005;
inline constexpr ErrorCode kErrorWinHttpUnrecognizedScheme = 12006;
inline constexpr ErrorCode kErrorWinHttpInvalidOption = 12009;
inline constexpr ErrorCode kErrorWinHttpOperationCancelled = 12017;
inline constexpr ErrorCode kErrorWinHttpIncorrectHandleState = 12019;
inline constexpr ErrorCode kErrorWinHttpUnableToDownloadScript = 12167;
inline constexpr ErrorCode kErrorWinHttpSecureFailure = 12175;
inline constexpr ErrorCode kErrorWinHttpAutodetectionFailed = 12180;

/// Layout of WINHTTP_ASYNC_RESULT, which REQUEST_ERROR points to.
struct AsyncResult {
  std::uintptr_t result;  ///< the call that failed: kApiReceiveResponse to kApiSendRequest
  std::uint32_t error;    ///< why
};

/// The fields of WINHTTP_CURRENT_USER_IE_PROXY_CONFIG; an absent text is empty.
struct IeProxySettings {
  bool autoDetect = false;
  std::wstring autoConfigUrl;
  std::wstring proxy;
  std::wstring proxyBypass;
};

/// The fields of WINHTTP_PROXY_INFO; an absent text is empty.
struct ProxyInfo {
  std::uint32_t accessType = 0;
  std::wstring proxy;
  std::wstring bypass;
};

/// The fields of WINHTTP_AUTOPROXY_OPTIONS.
struct AutoProxyOptions {
  std::uint32_t flags = 0;
  std::uint32_t detectFlags = 0;
  std::wstring configUrl;
  bool autoLogon = false;
};

/// The status callback. It runs on WinHTTP's worker threads, or on the calling thread inside the very call that it
/// completes.
/// \param information  depends on the status: DATA_AVAILABLE and WRITE_COMPLETE point to a number of bytes (32 bits),
///                     READ_COMPLETE to the read buffer (`informationLength` bytes of it were filled), REQUEST_ERROR to
///                     an AsyncResult, SECURE_FAILURE to the bits of its reasons (32 bits).
using StatusCallback = void (*)(NativeHandle handle, std::uintptr_t context, std::uint32_t status, void* information,
                                std::uint32_t informationLength);

void closeInternetHandle(NativeHandle handle);

/// Owner of a WinHTTP session, connection or request, closed with WinHttpCloseHandle.
using InternetHandle = UniqueHandle<NullHandleTraits<NativeHandle, closeInternetHandle>>;

/// The HTTP client of the platform. Every operation is one platform call of that name; any thread may call.
class WinHttp {
 public:
  virtual ~WinHttp() = default;

  /// Opens a session. Empty proxy and bypass pass "none".
  virtual Result<InternetHandle> WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType,
                                             const std::wstring& proxy, const std::wstring& bypass,
                                             std::uint32_t flags) = 0;
  /// Sets the four limits of a session, in milliseconds.
  virtual Status WinHttpSetTimeouts(NativeHandle session, int resolve, int connect, int send, int receive) = 0;
  /// Sets the callback that the handle, and those opened below it, report to. The whole process uses one function.
  /// \return ok when the result was not WINHTTP_INVALID_STATUS_CALLBACK.
  virtual Status WinHttpSetStatusCallback(NativeHandle handle, StatusCallback callback, std::uint32_t mask) = 0;
  virtual Result<InternetHandle> WinHttpConnect(NativeHandle session, const std::wstring& host, std::uint16_t port) = 0;
  /// Opens a request without version, referrer and accept types.
  virtual Result<InternetHandle> WinHttpOpenRequest(NativeHandle connection, const std::wstring& verb,
                                                    const std::wstring& path, std::uint32_t flags) = 0;
  /// Sets a 32-bit option.
  virtual Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, std::uint32_t value) = 0;
  /// Sets a text option. The layer makes no copy of the text, which may be a password.
  virtual Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, const std::wstring& value) = 0;
  /// Sends the headers and the first part of the body.
  /// \param optionalData  that part; empty passes none. The memory stays in use until the request handle is closed.
  /// \param totalLength   bytes of the whole body.
  /// \param context       comes with every notification of the request from now on.
  virtual Status WinHttpSendRequest(NativeHandle request, const std::wstring& headers,
                                    std::span<const std::byte> optionalData, std::uint32_t totalLength,
                                    std::uintptr_t context) = 0;
  virtual Status WinHttpReceiveResponse(NativeHandle request) = 0;
  /// Reads a header that is a number; `level` holds kQueryFlagNumber.
  virtual Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level) = 0;
  /// Reads headers as a text. An empty buffer passes none.
  /// \return the bytes written, without the terminator. A buffer that is too small fails with kErrorInsufficientBuffer
  ///         and returns the bytes needed, with the terminator.
  virtual Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level,
                                                    std::span<wchar_t> buffer) = 0;
  virtual Status WinHttpQueryDataAvailable(NativeHandle request) = 0;
  /// Reads into `buffer`, which stays in use until READ_COMPLETE or the closing of the request.
  virtual Status WinHttpReadData(NativeHandle request, std::span<std::byte> buffer) = 0;
  /// Sends `data`, which stays in use until WRITE_COMPLETE or the closing of the request.
  virtual Status WinHttpWriteData(NativeHandle request, std::span<const std::byte> data) = 0;
  virtual Status WinHttpCloseHandle(NativeHandle handle) = 0;

  /// Reads an option that is a context: the server's certificate (a PCCERT_CONTEXT) or chain (a PCCERT_CHAIN_CONTEXT).
  /// The caller owns it and frees it.
  virtual Result<NativeHandle> WinHttpQueryOption(NativeHandle request, std::uint32_t option) = 0;

  // The next four copy the texts that the platform returns, and free the platform's own with GlobalFree.
  virtual Result<IeProxySettings> WinHttpGetIEProxyConfigForCurrentUser() = 0;
  /// Finds a PAC file in the network.
  /// \return its URL.
  virtual Result<std::wstring> WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) = 0;
  virtual Result<ProxyInfo> WinHttpGetDefaultProxyConfiguration() = 0;
  virtual Result<ProxyInfo> WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                                  const AutoProxyOptions& options) = 0;

  /// Takes a URL apart, with flags 0. Fills the scheme's number, the scheme, the host, the port, the path and the
  /// extra.
  virtual Result<UrlComponents> WinHttpCrackUrl(const std::wstring& url) = 0;
};

}  // namespace platform
