#include <utility>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/crl_download.h"
#include "http/inflight_table.h"
#include "http/proxy/system_proxy.h"
#include "http/proxy/user_agents.h"
#include "http/request_text.h"
#include "http/server_probe.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

namespace {

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
  if (!parseTarget(url)) {
    return false;
  }
  if (!handles_.markStarted()) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Request was performed before");
    return false;
  }
  completion_ = std::move(completion);
  try {
    if (start(method)) {
      return true;
    }
  } catch (...) {
    endFailedStart();
    throw;
  }
  return endFailedStart();
}

bool WinHttpRequest::start(HttpMethod method) {
  chooseProxy();
  const auto limits = timeouts_.forPlatform();
  if (!preflightCertVerification()) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Pre-flight certificate verification failed for %s",
              target_.url());
    return false;
  }
  verb_ = verbOf(method);
  return openSession() && configureSession(limits) && openConnection() && openRequest() && applySecurity() &&
         applyProxyCredentials() && prepareBody(method) && send();
}

bool WinHttpRequest::endFailedStart() {
  handles_.close(ExchangeHandles::Outcome::kStartFailed);
  const auto outcome = handles_.takeOutcome();
  if (!outcome) {
    // A send that failed after its notifications had ended the exchange: the completion has come, or is being called.
    return isCompleted();
  }
  completion_ = nullptr;
  body_.close();
  if (*outcome == ExchangeHandles::Outcome::kCancelled) {
    signalCancelled();
  }
  return false;
}

bool WinHttpRequest::parseTarget(const std::string& url) {
  if (!target_.parse(url)) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to parse url");
    return false;
  }
  if (!target_.isHttps() && !plainHttpAllowed_) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Only https is supported");
    return false;
  }
  return true;
}

void WinHttpRequest::chooseProxy() {
  if (gate_.isProbe()) {
    return;  // it goes the way that its parent has chosen
  }
  ChosenProxy chosen;
  SystemProxy::ChooseProxyServer(chosen, target_.url(), proxy_.pacUrl, proxy_.servers, proxy_.bypass);
  proxy_.servers = std::move(chosen.servers);
  proxy_.bypass = std::move(chosen.bypass);
}

bool WinHttpRequest::preflightCertVerification() {
  return gate_.preflight(
      target_.host(), proxy_.isNamed(),
      {.probe = [this] { return probeServer(target_.url(), proxy_, timeouts_, gate_.settings()); },
       .downloadCrl = [this](const std::string& url, std::string& body) { return downloadCrl(url, proxy_, body); }});
}

bool WinHttpRequest::openSession() {
  const bool named = proxy_.isNamed();
  auto session = platform::current().winHttp.WinHttpOpen(
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
  const auto call = handles_.useSession();
  if (!call) {
    return false;
  }
  const auto limited =
      platform::current().winHttp.WinHttpSetTimeouts(call.handle(), limits[0], limits[1], limits[2], limits[3]);
  if (!limited) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSetTimeouts failed: 0x%x", limited.error);
    return false;
  }
  const std::uint32_t sending = gate_.watchesSending(proxy_.isNamed()) ? platform::kStatusSendingRequest : 0U;
  if (!platform::current().winHttp.WinHttpSetStatusCallback(call.handle(), WinHttpCallback, kNotifications | sending)) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Failed to set status callback");
    return false;
  }
  return true;
}

bool WinHttpRequest::openConnection() {
  const auto call = handles_.useSession();
  if (!call) {
    return false;
  }
  auto connection = platform::current().winHttp.WinHttpConnect(call.handle(), target_.host(), target_.port());
  if (!connection) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpConnect failed: 0x%x", connection.error);
    return false;
  }
  return handles_.setConnection(std::move(connection.value));
}

bool WinHttpRequest::openRequest() {
  const auto call = handles_.useConnection();
  if (!call) {
    return false;
  }
  const std::uint32_t flags =
      platform::kWinHttpFlagBypassProxyCache | (target_.isHttps() ? platform::kWinHttpFlagSecure : 0U);
  auto request = platform::current().winHttp.WinHttpOpenRequest(call.handle(), verb_,
                                                                target_.requestLine(queryParameters_), flags);
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
  if (gate_.usesPlatformRevocation(proxy_.isNamed())) {
    const auto enabled = platform::current().winHttp.WinHttpSetOption(call.handle(), platform::kOptionEnableFeature,
                                                                      platform::kEnableSslRevocation);
    if (!enabled) {
      CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSetOption failed to enable revocation: 0x%x",
                enabled.error);
      return false;
    }
  }
  const std::uint32_t flags = gate_.securityFlags();
  if (flags != 0) {
    const auto set = platform::current().winHttp.WinHttpSetOption(call.handle(), platform::kOptionSecurityFlags, flags);
    if (!set) {
      CORE::log(CORE::kWarn, L"WinHttpRequest::performAsync(): WinHttpSetOptions failed: 0x%x", set.error);
    }
  }
  return true;
}

bool WinHttpRequest::applyProxyCredentials() {
  if (proxy_.user.empty() || proxy_.password.empty()) {
    return true;
  }
  const auto call = handles_.useRequest();
  if (!call) {
    return false;
  }
  const auto user =
      platform::current().winHttp.WinHttpSetOption(call.handle(), platform::kOptionProxyUsername, proxy_.user);
  if (!user) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to set proxy user: 0x%x %s", user.error,
              CORE::systemErrorText(user.error));
    return false;
  }
  const auto password = platform::current().winHttp.WinHttpSetOption(call.handle(), platform::kOptionProxyPassword,
                                                                     proxy_.password.str());
  if (!password) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to set proxy pw: 0x%x %s", password.error,
              CORE::systemErrorText(password.error));
    return false;
  }
  return true;
}

bool WinHttpRequest::prepareBody(HttpMethod method) {
  if (method != HttpMethod::kPost && method != HttpMethod::kPut) {
    return true;
  }
  if (!body_.prepare()) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Request data size is too large");
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
  const auto sent = platform::current().winHttp.WinHttpSendRequest(call.handle(), lines, body_.optionalData(),
                                                                   body_.length(), registration.number());
  if (!sent) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSendRequest failed: 0x%x", sent.error);
    return false;
  }
  registration.keep();
  return true;
}
