#include <utility>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/convert.h"
#include "http/inflight_table.h"
#include "http/proxy/system_proxy.h"
#include "http/request_text.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

namespace {

constexpr wchar_t kUserAgent[] = L"VXAgent";

// All completions, secure failure, handle created and handle closing.
constexpr std::uint32_t kNotifications = 0x097F0C00;

std::wstring verbOf(HttpMethod method) {
  switch (method) {
    case HttpMethod::kGet:
      return L"GET";
    case HttpMethod::kPost:
      return L"POST";
    case HttpMethod::kPut:
      return L"PUT";
    case HttpMethod::kDelete:
      return L"DELETE";
  }
  return {};
}

/// Takes a request out of the in-flight table again unless its send succeeded.
class Registration {
 public:
  explicit Registration(std::shared_ptr<WinHttpRequest> request)
      : number_(InflightTable::instance().add(std::move(request))) {}
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;
  ~Registration() {
    if (number_ != 0) {
      InflightTable::instance().take(number_);
    }
  }
  std::uintptr_t number() const { return number_; }
  void keep() { number_ = 0; }

 private:
  std::uintptr_t number_;
};

platform::WinHttp& winHttp() { return platform::current().winHttp; }

}  // namespace

bool WinHttpRequest::performAsync(HttpMethod method, const std::string& url, HttpCompletion completion) {
  const auto self = shared_from_this();  // the completion may come in here and drop the last other owner
  if (!completion) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Invalid callback parameter");
    return false;
  }
  if (url.empty()) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Empty url");
    return false;
  }
  std::uint32_t scheme = 0;
  std::uint16_t port = 0;
  if (!parseTarget(url, scheme, port)) {
    return false;
  }
  if (!handles_.markStarted()) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Request was performed before");
    return false;
  }
  completion_ = std::move(completion);
  try {
    if (start(method, scheme, port)) {
      return true;
    }
  } catch (...) {
    concludeFailedStart();
    throw;
  }
  return concludeFailedStart();
}

bool WinHttpRequest::start(HttpMethod method, std::uint32_t scheme, std::uint16_t port) {
  chooseProxy();
  const auto limits = timeouts_.forPlatform();
  if (!preflightCertVerification()) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Pre-flight certificate verification failed for %s", url_);
    return false;
  }
  verb_ = verbOf(method);
  return openSession() && configureSession(limits) && openConnection(port) &&
         openRequest(scheme == platform::kSchemeHttps) && applySecurity() && applyProxyCredentials() &&
         prepareBody(method) && send();
}

bool WinHttpRequest::concludeFailedStart() {
  handles_.close(ExchangeHandles::Outcome::kStartFailed);
  const auto outcome = handles_.takeOutcome();
  if (!outcome) {
    // A send that failed after its notifications had ended the exchange: the completion has come, or is being called.
    return isCompleted();
  }
  completion_ = nullptr;
  closeUpload();
  if (*outcome == ExchangeHandles::Outcome::kCancelled) {
    signalCancelled();
  }
  return false;
}

bool WinHttpRequest::parseTarget(const std::string& url, std::uint32_t& scheme, std::uint16_t& port) {
  url_ = CORE::to_wstr(url, CORE::kUtf8);
  if (!CrackURL(url_, scheme, host_, port, path_, extra_, false)) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to parse url");
    return false;
  }
  if (scheme != platform::kSchemeHttps && !plainHttpAllowed_) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Only https is supported");
    return false;
  }
  return true;
}

void WinHttpRequest::chooseProxy() {
  if (isProbe_) {
    return;
  }
  ChosenProxy chosen;
  SystemProxy::ChooseProxyServer(chosen, url_, pacUrl_, proxy_, proxyBypass_);
  proxy_ = std::move(chosen.servers);
  proxyBypass_ = std::move(chosen.bypass);
}

bool WinHttpRequest::openSession() {
  const bool named = !proxy_.empty();
  auto session =
      winHttp().WinHttpOpen(kUserAgent, named ? platform::kAccessTypeNamedProxy : platform::kAccessTypeAutomaticProxy,
                            proxy_, named ? proxyBypass_ : std::wstring(), platform::kWinHttpFlagAsync);
  if (named) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::performAsync(): Using proxy server: %s", proxy_);
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
  const auto call = handles_.useSession();
  if (!call) {
    return false;
  }
  const auto limited = winHttp().WinHttpSetTimeouts(call.handle(), limits[0], limits[1], limits[2], limits[3]);
  if (!limited) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSetTimeouts failed: 0x%x", limited.error);
    return false;
  }
  if (!winHttp().WinHttpSetStatusCallback(call.handle(), WinHttpCallback, notificationMask())) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Failed to set status callback");
    return false;
  }
  return true;
}

std::uint32_t WinHttpRequest::notificationMask() const {
  const bool watchesSending = !trust_.pins.empty() || (!proxy_.empty() && trust_.checkRevocation) || isProbe_;
  return watchesSending ? kNotifications | platform::kStatusSendingRequest : kNotifications;
}

bool WinHttpRequest::openConnection(std::uint16_t port) {
  const auto call = handles_.useSession();
  if (!call) {
    return false;
  }
  auto connection = winHttp().WinHttpConnect(call.handle(), host_, port);
  if (!connection) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpConnect failed: 0x%x", connection.error);
    return false;
  }
  return handles_.setConnection(std::move(connection.value));
}

bool WinHttpRequest::openRequest(bool secure) {
  const auto call = handles_.useConnection();
  if (!call) {
    return false;
  }
  const std::uint32_t flags = platform::kWinHttpFlagBypassProxyCache | (secure ? platform::kWinHttpFlagSecure : 0U);
  auto request =
      winHttp().WinHttpOpenRequest(call.handle(), verb_, request_text::target(path_, extra_, queryParameters_), flags);
  if (!request) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpOpenRequest failed: 0x%x", request.error);
    return false;
  }
  return handles_.setRequest(std::move(request.value));
}

bool WinHttpRequest::applySecurity() {
  const auto call = handles_.useRequest();
  if (!call) {
    return false;
  }
  std::uint32_t flags = trust_.ignoreName ? platform::kSecurityFlagIgnoreCertCnInvalid : 0U;
  if (trust_.ignoreAllErrors) {
    flags |= platform::kSecurityFlagIgnoreAll;
  } else if (!trust_.pins.empty()) {
    flags |= platform::kSecurityFlagIgnoreUnknownCa;  // trust is decided by the pins
  } else if (trust_.checkRevocation && proxy_.empty()) {
    const auto enabled =
        winHttp().WinHttpSetOption(call.handle(), platform::kOptionEnableFeature, platform::kEnableSslRevocation);
    if (!enabled) {
      CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSetOption failed to enable revocation: 0x%x",
                enabled.error);
      return false;
    }
  }
  if (flags != 0) {
    const auto set = winHttp().WinHttpSetOption(call.handle(), platform::kOptionSecurityFlags, flags);
    if (!set) {
      CORE::log(CORE::kWarn, L"WinHttpRequest::performAsync(): WinHttpSetOptions failed: 0x%x", set.error);
    }
  }
  return true;
}

bool WinHttpRequest::applyProxyCredentials() {
  if (proxyUser_.empty() || proxyPassword_.empty()) {
    return true;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    return false;
  }
  const auto user = winHttp().WinHttpSetOption(call.handle(), platform::kOptionProxyUsername, proxyUser_);
  if (!user) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to set proxy user: 0x%x %s", user.error,
              CORE::systemErrorText(user.error));
    return false;
  }
  const auto password = winHttp().WinHttpSetOption(call.handle(), platform::kOptionProxyPassword, proxyPassword_.str());
  if (!password) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to set proxy pw: 0x%x %s", password.error,
              CORE::systemErrorText(password.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::send() {
  finalizeHeaders();
  std::wstring lines;
  if (!request_text::headerBlock(headers_, lines)) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): A request header holds a line break or a null character");
    return false;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    return false;
  }
  Registration registration(shared_from_this());
  const auto sent = winHttp().WinHttpSendRequest(call.handle(), lines, outgoing_.first(bytesSent_), totalLength_,
                                                 registration.number());
  if (!sent) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSendRequest failed: 0x%x", sent.error);
    return false;
  }
  registration.keep();
  return true;
}
