#include <array>
#include <cstdint>
#include <utility>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/proxy/user_agents.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// The session, connection and request handle of a request, opened and configured one after the other. Each operation
// logs why it fails, under the name of performAsync, and then gives false. A handle that somebody has closed meanwhile
// ends the start silently: it was cancelled.

bool WinHttpRequest::openSession() {
  auto& winHttp = platform::current().winHttp;
  const bool named = proxy_.isNamed();
  auto session = winHttp.WinHttpOpen(
      kRequestUserAgent, named ? platform::kAccessTypeNamedProxy : platform::kAccessTypeAutomaticProxy, proxy_.servers,
      named ? proxy_.bypass : std::wstring(), platform::kWinHttpFlagAsync);
  if (named) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::performAsync(): Using proxy server: %s", proxy_.servers);
  } else {
    CORE::log(CORE::kDebug, L"WinHttpRequest::performAsync(): Using automatic proxy configuration.");
  }
  if (!session) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpOpen failed: %s",
              CORE::systemErrorText(session.error));
    return false;
  }
  return handles_.setSession(std::move(session.value));
}

bool WinHttpRequest::configureSession(const std::array<int, 4>& limits) {
  auto& winHttp = platform::current().winHttp;
  const auto call = handles_.useSession();
  if (!call) {
    return false;
  }
  const auto limited = winHttp.WinHttpSetTimeouts(call.handle(), limits[0], limits[1], limits[2], limits[3]);
  if (!limited) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSetTimeouts failed: 0x%x", limited.error);
    return false;
  }
  const std::uint32_t sending = gate_.watchesSending(proxy_.isNamed()) ? platform::kStatusSendingRequest : 0U;
  if (!winHttp.WinHttpSetStatusCallback(call.handle(), WinHttpCallback, platform::kNotificationMask | sending)) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Failed to set status callback");
    return false;
  }
  return true;
}

bool WinHttpRequest::openConnection() {
  auto& winHttp = platform::current().winHttp;
  const auto call = handles_.useSession();
  if (!call) {
    return false;
  }
  auto connection = winHttp.WinHttpConnect(call.handle(), target_.host(), target_.port());
  if (!connection) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpConnect failed: 0x%x", connection.error);
    return false;
  }
  return handles_.setConnection(std::move(connection.value));
}

bool WinHttpRequest::openRequest() {
  auto& winHttp = platform::current().winHttp;
  const auto call = handles_.useConnection();
  if (!call) {
    return false;
  }
  const std::uint32_t flags =
      platform::kWinHttpFlagBypassProxyCache | (target_.isHttps() ? platform::kWinHttpFlagSecure : 0U);
  auto request = winHttp.WinHttpOpenRequest(call.handle(), verb_, target_.requestLine(queryParameters_), flags);
  if (!request) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpOpenRequest failed: 0x%x", request.error);
    return false;
  }
  return handles_.setRequest(std::move(request.value));
}

bool WinHttpRequest::applySecurity() {
  auto& winHttp = platform::current().winHttp;
  const auto call = handles_.useRequest();
  if (!call) {
    return false;
  }
  if (gate_.usesPlatformRevocation(proxy_.isNamed())) {
    const auto enabled =
        winHttp.WinHttpSetOption(call.handle(), platform::kOptionEnableFeature, platform::kEnableSslRevocation);
    if (!enabled) {
      CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSetOption failed to enable revocation: 0x%x",
                enabled.error);
      return false;
    }
  }
  const std::uint32_t flags = gate_.securityFlags();
  if (flags != 0) {
    const auto set = winHttp.WinHttpSetOption(call.handle(), platform::kOptionSecurityFlags, flags);
    if (!set) {
      CORE::log(CORE::kWarn, L"WinHttpRequest::performAsync(): WinHttpSetOptions failed: 0x%x", set.error);
    }
  }
  return true;
}

bool WinHttpRequest::forbidRedirects(HttpMethod method) {
  if (method != HttpMethod::kPost && method != HttpMethod::kPut && !gate_.bindsToServer()) {
    return true;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    return false;
  }
  // WinHTTP would send the body to another host, and take the answer of a server that nobody has checked.
  const auto forbidden = platform::current().winHttp.WinHttpSetOption(call.handle(), platform::kOptionRedirectPolicy,
                                                                      platform::kRedirectPolicyNever);
  if (!forbidden) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to forbid redirects: 0x%x %s", forbidden.error,
              CORE::systemErrorText(forbidden.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::applyProxyCredentials() {
  auto& winHttp = platform::current().winHttp;
  if (proxy_.user.empty() || proxy_.password.empty()) {
    return true;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    return false;
  }
  const auto user = winHttp.WinHttpSetOption(call.handle(), platform::kOptionProxyUsername, proxy_.user);
  if (!user) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to set proxy user: 0x%x %s", user.error,
              CORE::systemErrorText(user.error));
    return false;
  }
  const auto password = winHttp.WinHttpSetOption(call.handle(), platform::kOptionProxyPassword, proxy_.password.str());
  if (!password) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to set proxy pw: 0x%x %s", password.error,
              CORE::systemErrorText(password.error));
    return false;
  }
  return true;
}
