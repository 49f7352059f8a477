#include <array>
#include <cstring>
#include <string>
#include <utility>

#include "core/base/exception.h"
#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/inflight_table.h"
#include "http/win_http_request.h"
#include "platform/objects.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// From WinHTTP's notifications to the steps of the exchange and its end. Nothing here lets an exception out.

namespace {

/// The 32-bit number that a notification points to; 0 when it points to none.
std::uint32_t numberAt(const void* information) {
  std::uint32_t number = 0;
  if (information != nullptr) {
    std::memcpy(&number, information, sizeof(number));
  }
  return number;
}

Notification eventOf(std::uint32_t status, const void* information, std::uint32_t informationLength) {
  switch (status) {
    case platform::kStatusDataAvailable:
    case platform::kStatusWriteComplete:
    case platform::kStatusSecureFailure:
      return {status, numberAt(information), 0};
    case platform::kStatusReadComplete:
      return {status, informationLength, 0};
    case platform::kStatusRequestError: {
      platform::AsyncResult result{};
      if (information != nullptr) {
        std::memcpy(&result, information, sizeof(result));
      }
      return {status, result.error, result.result};
    }
    default:
      return {status, 0, 0};
  }
}

/// Logs the exception being handled; call it inside a catch block only.
void logStepException() noexcept {
  try {
    CORE::log(CORE::kError, L"WinHttpRequest::RequestCallback(): Exception in a callback: %s",
              CORE::currentExceptionText());
  } catch (...) {  // no memory left even for the text
    CORE::log(CORE::kError, L"WinHttpRequest::RequestCallback(): Exception in a callback");
  }
}

std::wstring apiName(std::uintptr_t api) {
  constexpr std::array<const wchar_t*, 5> kNames = {L"WinHttpReceiveResponse", L"WinHttpQueryDataAvailable",
                                                    L"WinHttpReadData", L"WinHttpWriteData", L"WinHttpSendRequest"};
  if (1 <= api && api <= kNames.size()) {
    return kNames[api - 1];
  }
  return L"unknown code: " + std::to_wstring(api);
}

struct SecureFailureText {
  std::uint32_t bit;
  const wchar_t* text;
};

// The bits of WINHTTP_STATUS_CALLBACK's SECURE_FAILURE.
constexpr std::array<SecureFailureText, 8> kSecureFailures = {{
    {0x1, L"WinHttpRequest::RequestCallback(): Certificate revocation check failed"},
    {0x2, L"WinHttpRequest::RequestCallback(): Certificate is invalid"},
    {0x4, L"WinHttpRequest::RequestCallback(): Certificate has been revoked"},
    {0x8, L"WinHttpRequest::RequestCallback(): Certificate Authority is unrecognized"},
    {0x10, L"WinHttpRequest::RequestCallback(): Certificate Common Name is incorrect"},
    {0x20, L"WinHttpRequest::RequestCallback(): Certificate is expired"},
    {0x80000000, L"WinHttpRequest::RequestCallback(): Internal ssl library error"},
    {0x40, L"WinHttpRequest::RequestCallback(): Server's certificate has wrong usage"},
}};

bool logSecureFailure(std::uint32_t bits) {
  for (const auto& [bit, text] : kSecureFailures) {
    if ((bits & bit) != 0) {
      CORE::log(CORE::kDebug, L"%s", text);
    }
  }
  return true;  // the error itself comes as REQUEST_ERROR
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
      watchSending();
      return;
    case platform::kStatusHandleClosing:
      if (queue_.pushClosing()) {
        drain();
      }
      return;
    default:
      break;
  }
  try {
    if (queue_.push(eventOf(status, information, informationLength))) {
      drain();
    }
  } catch (...) {  // the event is lost, so the exchange cannot go on
    logStepException();
    handles_.close(ExchangeHandles::Outcome::kFinished);
  }
}

void WinHttpRequest::watchSending() noexcept {
  bool allowed = false;
  try {
    allowed = !isDecided() && SendingRequest();
  } catch (...) {
    logStepException();
  }
  if (!allowed || isDecided()) {
    handles_.closeNow(ExchangeHandles::Outcome::kFinished);  // data leaves as soon as this notification returns
  }
}

void WinHttpRequest::drain() noexcept {
  Notification event;
  while (queue_.pop(event)) {
    if (event.status == platform::kStatusHandleClosing) {
      concludeClosing();
    } else {
      runStep(event);
    }
  }
}

void WinHttpRequest::runStep(const Notification& event) noexcept {
  bool success = false;
  try {
    success = step(event);
  } catch (...) {
    logStepException();
  }
  if (!success) {
    handles_.close(ExchangeHandles::Outcome::kFinished);
  }
}

bool WinHttpRequest::step(const Notification& event) {
  switch (event.status) {
    case platform::kStatusSecureFailure:
      return logSecureFailure(event.number);
    case platform::kStatusRequestError:
      return requestError(event);
    case platform::kStatusSendRequestComplete:
      return isDecided() || continueUpload();
    case platform::kStatusWriteComplete:
      return isDecided() || writeComplete(event.number);
    case platform::kStatusHeadersAvailable:
      return isDecided() || CheckHeaders();
    case platform::kStatusDataAvailable:
      // 0 bytes are the normal end, which closes like a failure: both lead to the completion.
      return isDecided() || (event.number != 0 && DataAvailable(event.number));
    case platform::kStatusReadComplete:
      return isDecided() || readComplete(event.number);
    default:
      CORE::log(CORE::kDebug, L"WinHttpRequest::RequestCallback(): Unable to handle callback type: %d", event.status);
      return true;
  }
}

bool WinHttpRequest::requestError(const Notification& event) {
  const std::string text = CORE::toUtf8Lossy(CORE::moduleErrorText(L"winhttp.dll", event.number));
  CORE::log(isProbe_ ? CORE::kTrace : CORE::kError,  // a probe's abort is expected
            L"WinHttpRequest::RequestCallback(): %s failed for url %s: 0x%x (%S)", apiName(event.api), url_,
            event.number, text);
  return event.number == platform::kErrorWinHttpOperationCancelled;  // whoever cancelled closes
}

void WinHttpRequest::concludeClosing() noexcept {
  const auto outcome = handles_.takeOutcome();
  if (!outcome) {
    return;
  }
  closeUpload();
  if (*outcome == ExchangeHandles::Outcome::kFinished) {
    deliver();
  } else if (*outcome == ExchangeHandles::Outcome::kCancelled) {
    completion_ = nullptr;
    signalCancelled();
  }
}

void WinHttpRequest::deliver() noexcept {
  const HttpCompletion completion = std::exchange(completion_, nullptr);
  try {
    const std::lock_guard<RequestLock> guard(*this);
    std::string body;
    {
      const std::lock_guard result(resultMutex_);
      try {
        body = responseBody_;
      } catch (const std::bad_alloc&) {  // the completion must come, so it gets the only copy there is
        body = std::move(responseBody_);
      }
    }
    completion(this, std::move(body));
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
