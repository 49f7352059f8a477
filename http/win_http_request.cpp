#include "http/win_http_request.h"

#include <array>
#include <string_view>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/convert.h"
#include "http/trust/win_cert_implementation.h"
#include "platform/objects.h"
#include "platform/platform.h"

namespace {

constexpr std::uint32_t kCancelTimeout = 10000;  // milliseconds

constexpr std::array<std::string_view, 9> kContentTypes = {"",
                                                           "text/css",
                                                           "text/csv",
                                                           "text/html",
                                                           "application/json",
                                                           "text/plain",
                                                           "text/xml",
                                                           "application/octet-stream",
                                                           "application/zip"};

std::wstring wide(const std::string& text) { return CORE::to_wstr(text, CORE::kUtf8); }

}  // namespace

std::shared_ptr<WinHttpRequest> WinHttpRequest::create() { return std::make_shared<WinHttpRequest>(CreateKey{}); }

bool WinHttpRequest::get(const std::string& url, std::string& response) {
  return finishSync(performSync(HttpMethod::kGet, url, {}, {}), response) && hasWholeBody(response.size());
}

bool WinHttpRequest::post(ContentType type, const std::string& url, const std::string& body, std::string& response) {
  setContentType(type);
  return finishSync(performSync(HttpMethod::kPost, url, body, {}), response);
}

bool WinHttpRequest::put(ContentType type, const std::string& url, const std::string& body, std::string& response) {
  setContentType(type);
  return finishSync(performSync(HttpMethod::kPut, url, body, {}), response);
}

bool WinHttpRequest::putFile(ContentType type, const std::string& url, const std::string& path, std::string& response) {
  setContentType(type);
  return finishSync(performSync(HttpMethod::kPut, url, {}, path), response);
}

bool WinHttpRequest::deleteRequest(const std::string& url, std::string& response) {
  return finishSync(performSync(HttpMethod::kDelete, url, {}, {}), response);
}

bool WinHttpRequest::getAsync(const std::string& url, HttpCompletion completion) {
  return performAsync(HttpMethod::kGet, url, std::move(completion));
}

bool WinHttpRequest::postAsync(ContentType type, const std::string& url, const std::string& body,
                               HttpCompletion completion) {
  setContentType(type);
  body_.copy(std::as_bytes(std::span(body)));
  return performAsync(HttpMethod::kPost, url, std::move(completion));
}

bool WinHttpRequest::putAsync(ContentType type, const std::string& url, std::span<const std::byte> buffer,
                              std::size_t length, HttpCompletion completion) {
  setContentType(type);
  if (buffer.size() < length) {
    CORE::log(CORE::kWarn, L"WinHttpRequest::putAsync(): Size of outgoing buffer is smaller than the given length");
    length = buffer.size();
  }
  body_.takeBuffer(buffer.first(length));
  return performAsync(HttpMethod::kPut, url, std::move(completion));
}

bool WinHttpRequest::putStringAsync(ContentType type, const std::string& url, const std::string& body,
                                    HttpCompletion completion) {
  setContentType(type);
  body_.copy(std::as_bytes(std::span(body)));
  return performAsync(HttpMethod::kPut, url, std::move(completion));
}

bool WinHttpRequest::putFileAsync(ContentType type, const std::string& url, const std::string& path,
                                  HttpCompletion completion) {
  setContentType(type);
  body_.useFile(path);
  return performAsync(HttpMethod::kPut, url, std::move(completion));
}

void WinHttpRequest::setThumbprintsFromCerts(const std::vector<platform::NativeHandle>& certificates) {
  gate_.settings().pins = WinCertImplementation::GetThumbprints(certificates);
}

void WinHttpRequest::setTimeouts(std::uint32_t resolve, std::uint32_t connect, std::uint32_t send,
                                 std::uint32_t receive) {
  timeouts_.setSeconds({resolve, connect, send, receive});
}

void WinHttpRequest::setTimeoutsMs(std::uint32_t resolve, std::uint32_t connect, std::uint32_t send,
                                   std::uint32_t receive) {
  timeouts_.setMilliseconds({resolve, connect, send, receive});
}

void WinHttpRequest::setProxy(const std::string& proxy) { setProxy(wide(proxy)); }

void WinHttpRequest::setProxyBypass(const std::string& bypass) { setProxyBypass(wide(bypass)); }

void WinHttpRequest::setProxyCredentials(const std::wstring& user, const std::wstring& password) {
  proxy_.user = user;
  proxy_.password = CORE::wstr::secret(password);
}

void WinHttpRequest::setProxyCredentials(const std::string& user, const std::wstring& password) {
  setProxyCredentials(wide(user), password);
}

void WinHttpRequest::setPacUrl(const std::string& url) { setPacUrl(wide(url)); }

bool WinHttpRequest::performSync(HttpMethod method, const std::string& url, const std::string& body,
                                 const std::string& path) {
  auto event = platform::current().objects.CreateEventW(false, false);
  if (!event) {
    CORE::log(CORE::kError, L"WinHttpRequest::performSync(): Unable to create synchronizing event");
    return false;
  }
  syncEvent_ = std::move(event.value);
  if (!path.empty()) {
    body_.useFile(path);
  } else if (!body.empty()) {
    body_.copy(std::as_bytes(std::span(body)));
  }
  if (!performAsync(method, url, Synchronize)) {
    CORE::log(CORE::kError, L"WinHttpRequest::performSync(): Failed to perform synchronous request");
    return false;
  }
  const auto waited = platform::current().objects.WaitForSingleObject(syncEvent_.get(), timeouts_.total());
  if (waited && waited.value == platform::kWaitObject0) {
    return true;
  }
  CORE::log(CORE::kError,
            L"WinHttpRequest::performSync(): Waiting for http request (%S) failed. Wait result=%d. LastError=%s.", url,
            waited.value, CORE::systemErrorText(waited.error));
  handles_.close(ExchangeHandles::Outcome::kCancelled);  // or it would go on without anybody who waits for it
  return false;
}

void WinHttpRequest::Synchronize(HttpRequest* request, const std::string&) {
  auto* const self = dynamic_cast<WinHttpRequest*>(request);
  if (self == nullptr || !self->syncEvent_ || !platform::current().objects.SetEvent(self->syncEvent_.get())) {
    CORE::log(CORE::kError, L"WinHttpRequest::Synchronize(): Unable to signal sync event");
  }
}

bool WinHttpRequest::finishSync(bool performed, std::string& response) {
  const bool success = performed && isSuccess();
  response = response_.body();
  return success;
}

/// Returns whether the whole body has come, of which there are that many bytes. What cut it off is in the log.
bool WinHttpRequest::hasWholeBody(std::uint64_t size) {
  if (!response_.bodyHasEnded()) {
    return false;
  }
  const std::uint64_t announced = response_.announcedLength().value_or(size);
  if (size < announced) {
    CORE::log(CORE::kError, L"WinHttpRequest::get(): The answer ended after %llu of %llu bytes", size, announced);
  }
  return size >= announced;
}

bool WinHttpRequest::cancelRequest() {
  const auto self = shared_from_this();
  if (handles_.closeIncomplete(ExchangeHandles::Outcome::kCancelled)) {
    return true;  // a start that is still under way sends nothing
  }
  auto event = platform::current().objects.CreateEventW(false, false);
  if (!event) {
    return false;
  }
  const platform::NativeHandle waitFor = event.value.get();
  if (!handles_.close(ExchangeHandles::Outcome::kCancelled, [&] { cancelEvent_ = std::move(event.value); })) {
    return true;
  }
  const auto waited = platform::current().objects.WaitForSingleObject(waitFor, kCancelTimeout);
  if (waited && waited.value == platform::kWaitObject0) {
    return true;
  }
  CORE::log(CORE::kDebug, L"WinHttpRequest::cancelRequest(): Failed to wait for cancel event");
  return false;
}

std::uint32_t WinHttpRequest::getResponseCode() {
  if (!isCompleted()) {
    CORE::log(CORE::kWarn, L"WinHttpRequest::getResponseCode(): Request did not complete");
  }
  return response_.status();
}

void WinHttpRequest::getResponseHeaders(std::string& headers) {
  if (!isCompleted()) {
    CORE::log(CORE::kWarn, L"WinHttpRequest::getResponseHeaders(): Request did not complete");
  }
  headers = response_.headers();
}

void WinHttpRequest::setContentType(ContentType type) {
  const auto number = static_cast<std::size_t>(type);
  if (number != 0 && number < kContentTypes.size()) {
    headers_["Content-Type"] = kContentTypes[number];
  }
}

bool WinHttpRequest::CrackURL(const std::wstring& url, std::uint32_t& scheme, std::wstring& host, std::uint16_t& port,
                              std::wstring& path, std::wstring& extra, bool plainHttpDefault) {
  auto parts = crackUrl(url, plainHttpDefault);
  const bool parsed = parts.has_value();
  auto [number, name, parsedHost, parsedPort, parsedPath, parsedExtra] =
      std::move(parts).value_or(platform::UrlComponents{});
  scheme = number;
  host = std::move(parsedHost);
  port = parsedPort;
  path = std::move(parsedPath);
  extra = std::move(parsedExtra);
  return parsed;
}
