#include <string>
#include <utility>

#include "core/base/exception.h"
#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/inflight_table.h"
#include "http/notification.h"
#include "http/win_http_request.h"
#include "platform/objects.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// From WinHTTP's notifications to the steps of the exchange, and to its end. An exception must not leave a callback of
// WinHTTP, so each of these operations ends the exchange instead.

namespace {

/// Logs the exception being handled; call it inside a catch block only.
void logStepException() noexcept {
  try {
    CORE::log(CORE::kError, L"WinHttpRequest::RequestCallback(): Exception in a callback: %s",
              CORE::currentExceptionText());
  } catch (...) {  // no memory left even for the text
    CORE::log(CORE::kError, L"WinHttpRequest::RequestCallback(): Exception in a callback");
  }
}

}  // namespace

void WinHttpRequest::WinHttpCallback(platform::NativeHandle /*handle*/, std::uintptr_t context, std::uint32_t status,
                                     void* information, std::uint32_t informationLength) {
  if (context == 0) {
    if (status != platform::kStatusHandleCreated && status != platform::kStatusHandleClosing) {
      CORE::log(CORE::kWarn, L"WinHttpRequest::WinHttpCallback(): Context is null. Internet status: %d", status);
    }
    return;
  }
  // HANDLE_CLOSING is the last notification. The share taken here keeps the request alive until its completion has
  // returned, even when every other owner drops it meanwhile.
  InflightTable& table = InflightTable::instance();
  const auto request = status == platform::kStatusHandleClosing ? table.take(context) : table.find(context);
  if (request) {  // else it comes late, after a send that failed
    request->RequestCallback(status, information, informationLength);
  }
}

void WinHttpRequest::RequestCallback(std::uint32_t status, const void* information,
                                     std::uint32_t informationLength) noexcept {
  switch (status) {
    case platform::kStatusRequestSent:
    case platform::kStatusHandleCreated:
      return;
    case platform::kStatusSendingRequest:
      checkBeforeSending();  // not queued: WinHTTP sends as soon as this notification returns
      return;
    case platform::kStatusHandleClosing:
      if (notifications_.pushClosing()) {
        handleNotifications();
      }
      return;
    default:
      break;
  }
  try {
    if (notifications_.push(copyNotification(status, information, informationLength))) {
      handleNotifications();
    }
  } catch (...) {  // the notification is lost, so the exchange cannot go on
    logStepException();
    handles_.close(ExchangeHandles::Outcome::kFinished);
  }
}

void WinHttpRequest::checkBeforeSending() noexcept {
  bool allowed = false;
  try {
    allowed = !hasEnded() && SendingRequest();
  } catch (...) {
    logStepException();
  }
  if (!allowed || hasEnded()) {
    // At once, also when calls are in progress: WinHttpSendRequest itself may be the frame below.
    handles_.closeNow(ExchangeHandles::Outcome::kFinished);
  }
}

bool WinHttpRequest::SendingRequest() {
  if (gate_.hasPassed()) {
    CORE::log(CORE::kTrace,
              L"WinHttpRequest::SendingRequest(): Skip as server certificate chain has already been verified");
    return true;
  }
  std::shared_ptr<const ServerCertificates> server;
  {
    const auto call = handles_.useRequest();  // not held longer than this: a close waits for it
    if (!call) {
      return stepWithoutHandle(CORE::kError, L"WinHttpRequest::SendingRequest(): Request handle doesn't exist");
    }
    if (gate_.settings().ignoreAllErrors) {
      return true;
    }
    server = gate_.capture(call.handle());
  }
  return server != nullptr && gate_.checkLive(*server, target_.host());
}

bool WinHttpRequest::wasChecked() const {
  if (!gate_.lacksLiveCheck(proxy_.isNamed())) {
    return true;
  }
  CORE::log(CORE::kError,
            L"WinHttpRequest::RequestCallback(): The server's certificates were not checked before sending to %s",
            target_.url());
  return false;
}

void WinHttpRequest::handleNotifications() noexcept {
  Notification notification;
  while (notifications_.pop(notification)) {
    if (notification.status == platform::kStatusHandleClosing) {
      onHandleClosing();
    } else {
      runStep(notification);
    }
  }
}

void WinHttpRequest::runStep(const Notification& notification) noexcept {
  bool success = false;
  try {
    success = step(notification);
  } catch (...) {
    logStepException();
  }
  if (!success) {
    handles_.close(ExchangeHandles::Outcome::kFinished);  // the completion follows with HANDLE_CLOSING
  }
}

bool WinHttpRequest::step(const Notification& notification) {
  switch (notification.status) {
    case platform::kStatusSecureFailure:
      logSecureFailure(notification.number);
      return true;  // the error itself comes as REQUEST_ERROR
    case platform::kStatusRequestError:
      // It ends the exchange, 12017 too. Whoever cancelled has decided the end before, so that this decides nothing.
      // When nobody did, no other completion comes.
      logRequestError(notification);
      return false;
    case platform::kStatusSendRequestComplete:
      return hasEnded() || (wasChecked() && continueUpload());
    case platform::kStatusWriteComplete:
      return hasEnded() || writeComplete(notification.number);
    case platform::kStatusHeadersAvailable:
      return hasEnded() || CheckHeaders();
    case platform::kStatusDataAvailable:
      // 0 bytes are the normal end, which closes like a failure: both lead to the completion.
      return hasEnded() || (notification.number != 0 ? DataAvailable(notification.number) : endOfBody());
    case platform::kStatusReadComplete:
      return hasEnded() || readComplete(notification.number);
    default:
      CORE::log(CORE::kDebug, L"WinHttpRequest::RequestCallback(): Unable to handle callback type: %d",
                notification.status);
      return true;
  }
}

void WinHttpRequest::logRequestError(const Notification& notification) {
  const std::string text = CORE::toUtf8Lossy(CORE::moduleErrorText(L"winhttp.dll", notification.number));
  CORE::log(gate_.isProbe() ? CORE::kTrace : CORE::kError,  // a probe's abort is expected
            L"WinHttpRequest::RequestCallback(): %s failed for url %s: 0x%x (%S)", apiName(notification.api),
            target_.url(), notification.number, text);
}

void WinHttpRequest::onHandleClosing() noexcept {
  const auto outcome = handles_.takeOutcome();
  if (!outcome) {
    return;
  }
  body_.close();
  if (*outcome == ExchangeHandles::Outcome::kFinished) {
    callCompletion();
  } else if (*outcome == ExchangeHandles::Outcome::kCancelled) {
    completion_ = nullptr;
    signalCancelled();
  }
}

void WinHttpRequest::callCompletion() noexcept {
  const HttpCompletion completion = std::exchange(completion_, nullptr);
  try {
    const std::lock_guard<RequestLock> guard(*this);
    completion(this, response_.copyOrTakeBody());
  } catch (...) {
    logStepException();
  }
}

void WinHttpRequest::signalCancelled() noexcept {
  for (const auto* event : {&syncEvent_, &cancelEvent_}) {
    if (*event) {
      platform::current().objects.SetEvent(event->get());
    }
  }
}
