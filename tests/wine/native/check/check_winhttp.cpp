#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/platform.h"
#include "platform/winhttp.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

constexpr std::uint32_t kMask = 0x097F0C10;
constexpr std::uintptr_t kContext = 0x1234567890;

platform::WinHttp& winHttp_() { return platform::current().winHttp; }

// What the callback hears, handed to the checking thread; the information is copied while it is valid.
class Events {
 public:
  struct Event {
    std::uintptr_t context = 0;
    std::uint32_t status = 0;
    std::uint32_t number = 0;  ///< bytes, or the error
  };

  void push(const Event& event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
    arrived_.notify_one();
  }

  /// The next event that is one of the two; false after ten seconds without.
  bool next(std::uint32_t status, std::uint32_t otherStatus, Event& event) {
    std::unique_lock lock(mutex_);
    for (;;) {
      if (!arrived_.wait_for(lock, std::chrono::seconds(10), [this] { return !events_.empty(); })) {
        return false;
      }
      event = events_.front();
      events_.pop_front();
      if (event.status == status || event.status == otherStatus) {
        return true;
      }
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Event> events_;
};

Events& events() {
  static Events* const instance = new Events;  // callbacks may come until the process is gone
  return *instance;
}

void onStatus(platform::NativeHandle, std::uintptr_t context, std::uint32_t status, void* information,
              std::uint32_t length) {
  Events::Event event{context, status, length};
  if (status == platform::kStatusRequestError) {
    event.number = static_cast<const platform::AsyncResult*>(information)->error;
  } else if (status == platform::kStatusDataAvailable) {
    event.number = *static_cast<const std::uint32_t*>(information);
  }
  events().push(event);
}

bool await(std::uint32_t status, Events::Event& event) {
  return events().next(status, platform::kStatusRequestError, event) && event.status == status;
}

void splitting() {
  const auto parts = winHttp_().WinHttpCrackUrl(L"https://account.example.org:8443/box/blob.zip?sv=1&sig=a%2Bb");
  that(parts.ok && parts.value.schemeNumber == platform::kSchemeHttps && parts.value.port == 8443,
       "winhttp: a URL is taken apart");
  equal(parts.value.scheme, L"https", "winhttp: scheme");
  equal(parts.value.host, L"account.example.org", "winhttp: host");
  equal(parts.value.path, L"/box/blob.zip", "winhttp: path");
  equal(parts.value.extra, L"?sv=1&sig=a%2Bb", "winhttp: query");
  equal(winHttp_().WinHttpCrackUrl(L"ftp://example.org/").error, platform::kErrorWinHttpUnrecognizedScheme,
        "winhttp: another scheme is refused");
  equal(winHttp_().WinHttpCrackUrl(L"https://example.org:70000/").error, platform::kErrorWinHttpInvalidUrl,
        "winhttp: a port out of range is refused");
}

void settings(platform::NativeHandle session) {
  that(winHttp_().WinHttpSetTimeouts(session, 0, 60000, 30000, 30000).ok, "winhttp: time-outs are taken");
  that(!winHttp_().WinHttpSetTimeouts(session, -2, 0, 0, 0).ok, "winhttp: and refused below -1");
  that(winHttp_().WinHttpSetStatusCallback(session, onStatus, kMask).ok, "winhttp: the callback is taken");
  that(!winHttp_().WinHttpSetStatusCallback(nullptr, onStatus, kMask).ok, "winhttp: but not without a session");
  that(!winHttp_().WinHttpConnect(nullptr, L"localhost", 1).ok, "winhttp: no connection without a session");
  const auto proxied = winHttp_().WinHttpOpen(L"VXAgent", platform::kAccessTypeNamedProxy, L"127.0.0.1:1", L"localhost",
                                              platform::kWinHttpFlagAsync);
  that(proxied.ok, "winhttp: a session with a proxy opens");
}

std::size_t readBody(platform::NativeHandle request, bool& whole) {
  std::size_t total = 0;
  for (;;) {
    Events::Event event;
    whole = winHttp_().WinHttpQueryDataAvailable(request).ok && await(platform::kStatusDataAvailable, event);
    if (!whole || event.number == 0) {
      return total;
    }
    std::vector<std::byte> buffer(event.number);
    whole = winHttp_().WinHttpReadData(request, buffer).ok && await(platform::kStatusReadComplete, event);
    if (!whole) {
      return total;
    }
    total += event.number;
  }
}

void headers(platform::NativeHandle request) {
  equal(winHttp_().WinHttpQueryHeaders(request, platform::kQueryStatusCode | platform::kQueryFlagNumber).value, 200,
        "winhttp: the status");
  const auto asked = winHttp_().WinHttpQueryHeaders(request, platform::kQueryRawHeadersCrlf, {});
  that(!asked.ok && asked.error == platform::kErrorInsufficientBuffer && asked.value > 20,
       "winhttp: the size of the headers");
  std::vector<wchar_t> text(asked.value / sizeof(wchar_t));
  const auto read = winHttp_().WinHttpQueryHeaders(request, platform::kQueryRawHeadersCrlf, text);
  that(read.ok && read.value + sizeof(wchar_t) == asked.value && text.back() == L'\0' &&
           std::wstring_view(text.data()).starts_with(L"HTTP/1."),
       "winhttp: the headers");
}

void fetch(platform::NativeHandle session, const std::wstring& url) {
  const auto parts = winHttp_().WinHttpCrackUrl(url).value;
  auto connection = winHttp_().WinHttpConnect(session, parts.host, parts.port);
  auto request = winHttp_().WinHttpOpenRequest(connection.value.get(), L"GET", parts.path + parts.extra,
                                               platform::kWinHttpFlagSecure | platform::kWinHttpFlagBypassProxyCache);
  that(connection.ok && request.ok, "winhttp: a request opens");
  that(winHttp_().WinHttpSetOption(request.value.get(), platform::kOptionProxyUsername, L"user").ok &&
           winHttp_().WinHttpSetOption(request.value.get(), platform::kOptionSecurityFlags, 0).ok,
       "winhttp: options are taken");
  that(winHttp_().WinHttpSendRequest(request.value.get(), L"x-check: 1\r\n", {}, 0, kContext).ok,
       "winhttp: the request goes out");
  Events::Event event;
  if (!that(await(platform::kStatusSendRequestComplete, event) && event.context == kContext,
            "winhttp: it is sent, with our context")) {
    note("status " + std::to_string(event.status) + ", error " + std::to_string(event.number));
    return;
  }
  that(winHttp_().WinHttpReceiveResponse(request.value.get()).ok && await(platform::kStatusHeadersAvailable, event),
       "winhttp: the answer comes");
  headers(request.value.get());
  bool whole = false;
  const std::size_t size = readBody(request.value.get(), whole);
  that(whole && size > 0, "winhttp: and its body");
  note(std::to_string(size) + " bytes");
  that(winHttp_().WinHttpCloseHandle(request.value.release()).ok, "winhttp: the request closes");
  bool closed = false;
  while (!closed && events().next(platform::kStatusHandleClosing, platform::kStatusHandleClosing, event)) {
    closed = event.context == kContext;
  }
  that(closed, "winhttp: its last notification carries our context");
}

}  // namespace

void winHttp(const std::wstring& url) {
  splitting();
  const auto session =
      winHttp_().WinHttpOpen(L"VXAgent", platform::kAccessTypeNoProxy, L"", L"", platform::kWinHttpFlagAsync);
  if (!that(session.ok, "winhttp: a session opens")) {
    return;
  }
  settings(session.value.get());
  if (url.empty()) {
    skip("winhttp: a request over TLS", "no URL given");
    return;
  }
  fetch(session.value.get(), url);
}

}  // namespace check
