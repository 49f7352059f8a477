#include <algorithm>
#include <utility>

#include "core/log/log.h"
#include "http/crl_download.h"
#include "http/inflight_table.h"
#include "http/proxy/system_proxy.h"
#include "http/request_text.h"
#include "http/server_probe.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// The start of an exchange, up to the send.

namespace {

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

/// Puts a request into the in-flight table, and takes it out again unless its send succeeded: only a send that
/// succeeded is followed by HANDLE_CLOSING with this context.
class InflightRegistration {
 public:
  explicit InflightRegistration(std::shared_ptr<WinHttpRequest> request)
      : number_(InflightTable::instance().add(std::move(request))) {}
  InflightRegistration(const InflightRegistration&) = delete;
  InflightRegistration& operator=(const InflightRegistration&) = delete;
  ~InflightRegistration() {
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
  gate_.settings().retrievalTimeout = static_cast<std::uint32_t>(std::max(limits[3], 0));  // that of a receive
  if (!preflightCertVerification()) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Pre-flight certificate verification failed for %s",
              target_.url());
    return false;
  }
  verb_ = verbOf(method);
  return openSession() && configureSession(limits) && openConnection() && openRequest() && applySecurity() &&
         forbidRedirects(method) && applyProxyCredentials() && prepareBody(method) && send();
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
    signalCancelled();  // no HANDLE_CLOSING will do it
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

bool WinHttpRequest::prepareBody(HttpMethod method) {
  return (method != HttpMethod::kPost && method != HttpMethod::kPut) || body_.prepare();
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
  InflightRegistration registration(shared_from_this());
  const auto sent = platform::current().winHttp.WinHttpSendRequest(call.handle(), lines, body_.optionalData(),
                                                                   body_.length(), registration.number());
  if (!sent) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): WinHttpSendRequest failed: 0x%x", sent.error);
    return false;
  }
  registration.keep();
  return true;
}
