#include "tests/sim/winhttp.h"

#include "core/base/unicode.h"
#include "tests/sim/http_handles.h"
#include "tests/sim/internet.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

constexpr ErrorCode kErrorHeaderNotFound = 12150;
constexpr ErrorCode kErrorIncorrectHandleType = 12018;

std::vector<std::pair<std::string, std::string>> parseHeaders(const std::wstring& block) {
  std::vector<std::pair<std::string, std::string>> headers;
  for (std::size_t at = 0; at < block.size();) {
    const auto end = std::min(block.find(L"\r\n", at), block.size());
    const std::string line = CORE::toUtf8Lossy(block.substr(at, end - at));
    const auto colon = line.find(':');
    if (colon != std::string::npos) {
      headers.emplace_back(line.substr(0, colon), line.substr(colon + 1));
    }
    at = end + 2;
  }
  return headers;
}

std::wstring rawHeaders(const HttpReply& reply) {
  const std::wstring usual = L"HTTP/1.1 " + std::to_wstring(reply.status) + L" Answer\r\n" + reply.headers + L"\r\n";
  return reply.rawHeaders.empty() ? usual : reply.rawHeaders;
}

}  // namespace

std::vector<HttpExchange> WinHttp::requests() const {
  const Guard guard(kernel_.mutex);
  std::vector<HttpExchange> result;
  for (const auto& request : requests_) {
    result.push_back(request->known);
  }
  return result;
}

std::vector<HttpExchange> WinHttp::sentRequests() const {
  auto result = requests();
  std::erase_if(result, [](const HttpExchange& exchange) { return !exchange.sent; });
  return result;
}

std::string HttpExchange::header(const std::string& name) const {
  const auto lower = [](const std::string& text) { return lowerCase(std::wstring(text.begin(), text.end())); };
  for (const auto& [key, value] : headers) {
    if (lower(key) == lower(name)) {
      return value;
    }
  }
  return {};
}

std::uint32_t HttpExchange::securityFlags() const {
  const auto found = numberOptions.find(kOptionSecurityFlags);
  return found == numberOptions.end() ? 0 : found->second;
}

Result<InternetHandle> WinHttp::WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType,
                                            const std::wstring& proxy, const std::wstring& bypass,
                                            std::uint32_t flags) {
  return kernel_.call(__func__, [&] {
    auto session = std::make_shared<HttpSessionHandle>();
    session->known.userAgent = userAgent;
    session->known.accessType = accessType;
    session->known.proxy = proxy;
    session->known.bypass = bypass;
    session->known.sessionFlags = flags;
    session->handle = kernel_.add(session);
    return InternetHandle(session->handle);
  });
}

Status WinHttp::WinHttpSetTimeouts(NativeHandle session, int resolve, int connect, int send, int receive) {
  return kernel_.callOn<HttpHandle>(__func__, session, [&](HttpHandle& object) {
    refuseIf(std::min({resolve, connect, send, receive}) < -1, kErrorInvalidParameter);
    object.known.timeouts = {resolve, connect, send, receive};
  });
}

Status WinHttp::WinHttpSetStatusCallback(NativeHandle handle, StatusCallback callback, std::uint32_t mask) {
  return kernel_.callOn<HttpHandle>(__func__, handle, [&](HttpHandle& object) {
    object.callback = callback;
    object.known.callbackMask = mask;
  });
}

template <class Parent, class Child, class Describe>
Result<InternetHandle> WinHttp::openBelow(const char* name, NativeHandle parent, const Describe& describe) {
  return kernel_.callOn<Parent>(name, parent, [&](Parent& above, Guard& guard) {
    const auto child = std::make_shared<Child>();
    static_cast<HttpHandle&>(*child) = above;
    child->handle = kernel_.add(child);
    describe(child);
    guard.unlock();
    unbound(*child, kStatusHandleCreated);
    return InternetHandle(child->handle);
  });
}

Result<InternetHandle> WinHttp::WinHttpConnect(NativeHandle session, const std::wstring& host, std::uint16_t port) {
  return openBelow<HttpSessionHandle, HttpConnectionHandle>(__func__, session, [&](const auto& connection) {
    connection->known.host = host;
    connection->known.port = port;
  });
}

Result<InternetHandle> WinHttp::WinHttpOpenRequest(NativeHandle connection, const std::wstring& verb,
                                                   const std::wstring& path, std::uint32_t flags) {
  return openBelow<HttpConnectionHandle, HttpRequestHandle>(__func__, connection, [&](const Request& request) {
    request->known.index = requests_.size();
    request->known.verb = verb.empty() ? L"GET" : verb;
    request->known.path = path;
    request->known.requestFlags = flags;
    requests_.push_back(request);
  });
}

Status WinHttp::WinHttpSetOption(NativeHandle handle, std::uint32_t option, std::uint32_t value) {
  return kernel_.callOn<HttpHandle>(__func__, handle, [&](HttpHandle& object) {
    const bool forRequest = option == kOptionSecurityFlags || option == kOptionEnableFeature;
    refuseIf(forRequest && dynamic_cast<HttpRequestHandle*>(&object) == nullptr, kErrorIncorrectHandleType);
    object.known.numberOptions[option] = value;
  });
}

Status WinHttp::WinHttpSetOption(NativeHandle handle, std::uint32_t option, const std::wstring& value) {
  return kernel_.callOn<HttpHandle>(__func__, handle,
                                    [&](HttpHandle& object) { object.known.textOptions[option] = value; });
}

Status WinHttp::WinHttpSendRequest(NativeHandle handle, const std::wstring& headers,
                                   std::span<const std::byte> optionalData, std::uint32_t totalLength,
                                   std::uintptr_t context) {
  const auto prepare = [&](HttpRequestHandle& request) {
    refuseIf(request.known.sent, kErrorWinHttpIncorrectHandleState);  // a request is sent once here
    refuseIf(optionalData.size() > totalLength, kErrorInvalidParameter);
    request.known.headersText = headers;
    request.known.headers = parseHeaders(headers);
    request.known.totalLength = totalLength;
    request.known.context = context;
    request.known.sent = true;
    request.bound = true;
    request.optionalData = optionalData;
    request.pending->data = optionalData;
  };
  return start(handle, HttpStage::kSend, __func__, prepare, context);
}

Status WinHttp::WinHttpReceiveResponse(NativeHandle handle) {
  return start(handle, HttpStage::kReceive, __func__, [](HttpRequestHandle& request) {
    refuseIf(!request.known.sent || request.headersReady, kErrorWinHttpIncorrectHandleState);
  });
}

Status WinHttp::WinHttpWriteData(NativeHandle handle, std::span<const std::byte> data) {
  return start(handle, HttpStage::kWrite, __func__, [&](HttpRequestHandle& request) {
    refuseIf(!request.known.sent || request.headersReady, kErrorWinHttpIncorrectHandleState);
    if (data.empty() || request.known.bodySize + data.size() > request.known.totalLength) {
      kernel_.misuse("WinHttpWriteData: nothing, or more than the length that was announced");
      throw Failure{kErrorInvalidParameter};
    }
    request.known.writes.push_back(data.size());
    request.pending->data = data;
  });
}

Status WinHttp::WinHttpQueryDataAvailable(NativeHandle handle) {
  return start(handle, HttpStage::kQueryData, __func__,
               [](HttpRequestHandle& request) { refuseIf(!request.headersReady, kErrorWinHttpIncorrectHandleState); });
}

Status WinHttp::WinHttpReadData(NativeHandle handle, std::span<std::byte> buffer) {
  return start(handle, HttpStage::kRead, __func__, [&](HttpRequestHandle& request) {
    refuseIf(!request.headersReady, kErrorWinHttpIncorrectHandleState);
    request.pending->buffer = buffer;
  });
}

Result<std::uint32_t> WinHttp::WinHttpQueryHeaders(NativeHandle handle, std::uint32_t level) {
  return kernel_.callOn<HttpRequestHandle>(__func__, handle, [&](HttpRequestHandle& request) {
    refuseIf(level != (kQueryStatusCode | kQueryFlagNumber), kErrorHeaderNotFound);
    refuseIf(!request.headersReady, kErrorWinHttpIncorrectHandleState);
    return request.reply->status;
  });
}

Result<std::uint32_t> WinHttp::WinHttpQueryHeaders(NativeHandle handle, std::uint32_t level,
                                                   std::span<wchar_t> buffer) {
  const auto work = [&](HttpRequestHandle& request) -> Result<std::uint32_t> {
    refuseIf(level != kQueryRawHeadersCrlf, kErrorHeaderNotFound);
    refuseIf(!request.headersReady, kErrorWinHttpIncorrectHandleState);
    const std::wstring text = rawHeaders(*request.reply);
    const bool fits = buffer.size() > text.size();
    if (fits) {
      *std::ranges::copy(text, buffer.begin()).out = L'\0';
    }
    const auto bytes = static_cast<std::uint32_t>((text.size() + (fits ? 0 : 1)) * sizeof(wchar_t));
    return {fits, bytes, fits ? 0 : kErrorInsufficientBuffer};
  };
  return kernel_.callOn<HttpRequestHandle>(__func__, handle, work);
}

Result<UrlComponents> WinHttp::WinHttpCrackUrl(const std::wstring& url) {
  return kernel_.call(__func__, [&] { return splitUrl(url); });
}

}  // namespace sim
