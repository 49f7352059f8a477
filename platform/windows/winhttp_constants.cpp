// Compares the neutral constants and layouts of the HTTP client with the platform's own.

#include "platform/windows/native.h"
#include "platform/winhttp.h"

// After windows.h, which it needs.
#include <winhttp.h>

namespace platform {

static_assert(std::is_same_v<HINTERNET, NativeHandle> && sizeof(DWORD_PTR) == sizeof(std::uintptr_t));

static_assert(kAccessTypeNoProxy == WINHTTP_ACCESS_TYPE_NO_PROXY);
static_assert(kAccessTypeNamedProxy == WINHTTP_ACCESS_TYPE_NAMED_PROXY);
static_assert(kAccessTypeAutomaticProxy == WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY);
static_assert(kWinHttpFlagAsync == WINHTTP_FLAG_ASYNC);
static_assert(kWinHttpFlagBypassProxyCache == WINHTTP_FLAG_BYPASS_PROXY_CACHE);
static_assert(kWinHttpFlagSecure == WINHTTP_FLAG_SECURE);
static_assert(kSchemeHttp == INTERNET_SCHEME_HTTP && kSchemeHttps == INTERNET_SCHEME_HTTPS);

static_assert(kOptionSecurityFlags == WINHTTP_OPTION_SECURITY_FLAGS);
static_assert(kOptionEnableFeature == WINHTTP_OPTION_ENABLE_FEATURE);
static_assert(kOptionRedirectPolicy == WINHTTP_OPTION_REDIRECT_POLICY);
static_assert(kRedirectPolicyNever == WINHTTP_OPTION_REDIRECT_POLICY_NEVER);
static_assert(kOptionProxyUsername == WINHTTP_OPTION_PROXY_USERNAME);
static_assert(kOptionProxyPassword == WINHTTP_OPTION_PROXY_PASSWORD);
static_assert(kOptionServerCertContext == WINHTTP_OPTION_SERVER_CERT_CONTEXT);
static_assert(kOptionServerCertChainContext == WINHTTP_OPTION_SERVER_CERT_CHAIN_CONTEXT);
static_assert(kEnableSslRevocation == WINHTTP_ENABLE_SSL_REVOCATION);
static_assert(kSecurityFlagIgnoreUnknownCa == SECURITY_FLAG_IGNORE_UNKNOWN_CA);
static_assert(kSecurityFlagIgnoreCertWrongUsage == SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE);
static_assert(kSecurityFlagIgnoreCertCnInvalid == SECURITY_FLAG_IGNORE_CERT_CN_INVALID);
static_assert(kSecurityFlagIgnoreCertDateInvalid == SECURITY_FLAG_IGNORE_CERT_DATE_INVALID);

static_assert(kAutoProxyConfigUrl == WINHTTP_AUTOPROXY_CONFIG_URL);
static_assert(kAutoDetectDhcpAndDnsA == (WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A));

static_assert(kQueryStatusCode == WINHTTP_QUERY_STATUS_CODE);
static_assert(kQueryFlagNumber == WINHTTP_QUERY_FLAG_NUMBER);
static_assert(kQueryRawHeadersCrlf == WINHTTP_QUERY_RAW_HEADERS_CRLF);
static_assert(kHttpStatusFirstSuccess == HTTP_STATUS_OK && kHttpStatusCreated == HTTP_STATUS_CREATED);
static_assert(kHttpStatusLastSuccess == HTTP_STATUS_AMBIGUOUS - 1);

static_assert(kStatusSendingRequest == WINHTTP_CALLBACK_STATUS_SENDING_REQUEST);
static_assert(kStatusRequestSent == WINHTTP_CALLBACK_STATUS_REQUEST_SENT);
static_assert(kStatusHandleCreated == WINHTTP_CALLBACK_STATUS_HANDLE_CREATED);
static_assert(kStatusHandleClosing == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING);
static_assert(kStatusSecureFailure == WINHTTP_CALLBACK_STATUS_SECURE_FAILURE);
static_assert(kStatusHeadersAvailable == WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE);
static_assert(kStatusDataAvailable == WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE);
static_assert(kStatusReadComplete == WINHTTP_CALLBACK_STATUS_READ_COMPLETE);
static_assert(kStatusWriteComplete == WINHTTP_CALLBACK_STATUS_WRITE_COMPLETE);
static_assert(kStatusRequestError == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR);
static_assert(kStatusSendRequestComplete == WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE);
static_assert(kStatusGetProxyForUrlComplete == WINHTTP_CALLBACK_STATUS_GETPROXYFORURL_COMPLETE);

// Older headers do not name WINHTTP_CALLBACK_STATUS_GETPROXYSETTINGS_COMPLETE, and leave it out of the group.
static_assert(kCallbackFlagAllCompletions == (WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | kStatusGetProxySettingsComplete));
static_assert(kCallbackFlagHandles == WINHTTP_CALLBACK_FLAG_HANDLES);
static_assert(kStatusSecureFailure == WINHTTP_CALLBACK_FLAG_SECURE_FAILURE);
static_assert(kNotificationMask == 0x097F0C00);

static_assert(kSecureFailureCertRevFailed == WINHTTP_CALLBACK_STATUS_FLAG_CERT_REV_FAILED);
static_assert(kSecureFailureInvalidCert == WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT);
static_assert(kSecureFailureCertRevoked == WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED);
static_assert(kSecureFailureInvalidCa == WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA);
static_assert(kSecureFailureCertCnInvalid == WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID);
static_assert(kSecureFailureCertDateInvalid == WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID);
static_assert(kSecureFailureCertWrongUsage == WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE);
static_assert(kSecureFailureSecurityChannelError == WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR);

static_assert(kApiReceiveResponse == API_RECEIVE_RESPONSE && kApiQueryDataAvailable == API_QUERY_DATA_AVAILABLE);
static_assert(kApiReadData == API_READ_DATA && kApiWriteData == API_WRITE_DATA);
static_assert(kApiSendRequest == API_SEND_REQUEST);

static_assert(kErrorWinHttpTimeout == ERROR_WINHTTP_TIMEOUT);
static_assert(kErrorWinHttpInvalidUrl == ERROR_WINHTTP_INVALID_URL);
static_assert(kErrorWinHttpUnrecognizedScheme == ERROR_WINHTTP_UNRECOGNIZED_SCHEME);
static_assert(kErrorWinHttpInvalidOption == ERROR_WINHTTP_INVALID_OPTION);
static_assert(kErrorWinHttpOperationCancelled == ERROR_WINHTTP_OPERATION_CANCELLED);
static_assert(kErrorWinHttpIncorrectHandleState == ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
static_assert(kErrorWinHttpUnableToDownloadScript == ERROR_WINHTTP_UNABLE_TO_DOWNLOAD_SCRIPT);
static_assert(kErrorWinHttpSecureFailure == ERROR_WINHTTP_SECURE_FAILURE);
static_assert(kErrorWinHttpAutodetectionFailed == ERROR_WINHTTP_AUTODETECTION_FAILED);

static_assert(sizeof(AsyncResult) == sizeof(WINHTTP_ASYNC_RESULT));
static_assert(offsetof(AsyncResult, result) == offsetof(WINHTTP_ASYNC_RESULT, dwResult));
static_assert(offsetof(AsyncResult, error) == offsetof(WINHTTP_ASYNC_RESULT, dwError));
static_assert(sizeof(URL_COMPONENTS) == 104);

}  // namespace platform
