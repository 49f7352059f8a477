#include "tests/sim/winhttp.h"

#include <algorithm>

#include "core/convert.h"
#include "tests/sim/http_handles.h"
#include "tests/sim/internet.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

constexpr platform::ErrorCode kErrorHeaderNotFound = 12150;
constexpr platform::ErrorCode kErrorIncorrectHandleType = 12018;

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
  if (!reply.rawHeaders.empty()) {
    return reply.rawHeaders;
  }
  return L"HTTP/1.1 " + std::to_wstring(reply.status) + L" Answer\r\n" + reply.headers + L"\r\n";
}

}  // namespace

void WinHttp::onRequest(std::function<HttpReply(const HttpExchange&)> server) {
  const Guard guard(kernel_.mutex);
  server_ = std::move(server);
}

void WinHttp::onHeaders(std::function<std::optional<HttpReply>(const HttpExchange&)> server) {
  const Guard guard(kernel_.mutex);
  headersServer_ = std::move(server);
}

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
  const auto found = numberOptions.find(platform::kOptionSecurityFlags);
  return found == numberOptions.end() ? 0 : found->second;
}

Result<platform::InternetHandle> WinHttp::WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType,
                                                      const std::wstring& proxy, const std::wstring& bypass,
                                                      std::uint32_t flags) {
  return kernel_.call("WinHttpOpen", [&]() -> Result<platform::InternetHandle> {
    auto session = std::make_shared<HttpSessionHandle>();
    session->known.userAgent = userAgent;
    session->known.accessType = accessType;
    session->known.proxy = proxy;
    session->known.bypass = bypass;
    session->known.sessionFlags = flags;
    session->handle = kernel_.add(session);
    return {true, platform::InternetHandle(session->handle), 0};
  });
}

Status WinHttp::WinHttpSetTimeouts(NativeHandle session, int resolve, int connect, int send, int receive) {
  return kernel_.callOn<HttpHandle>("WinHttpSetTimeouts", session, [&](HttpHandle& object) -> Status {
    if (std::min({resolve, connect, send, receive}) < -1) {
      return Failure{platform::kErrorInvalidParameter};
    }
    object.known.timeouts = {resolve, connect, send, receive};
    return kDone;
  });
}

Status WinHttp::WinHttpSetStatusCallback(NativeHandle handle, platform::StatusCallback callback, std::uint32_t mask) {
  return kernel_.callOn<HttpHandle>("WinHttpSetStatusCallback", handle, [&](HttpHandle& object) {
    object.callback = callback;
    object.known.callbackMask = mask;
    return kDone;
  });
}

template <class Parent, class Child, class Describe>
Result<platform::InternetHandle> WinHttp::openBelow(const char* name, NativeHandle parent, const Describe& describe) {
  return kernel_.callOn<Parent>(name, parent, [&](Parent& above, Guard& guard) -> Result<platform::InternetHandle> {
    const auto child = std::make_shared<Child>();
    static_cast<HttpHandle&>(*child) = above;
    child->handle = kernel_.add(child);
    describe(child);
    guard.unlock();
    unbound(*child, platform::kStatusHandleCreated);
    return {true, platform::InternetHandle(child->handle), 0};
  });
}

Result<platform::InternetHandle> WinHttp::WinHttpConnect(NativeHandle session, const std::wstring& host,
                                                         std::uint16_t port) {
  const auto describe = [&](const auto& connection) {
    connection->known.host = host;
    connection->known.port = port;
  };
  return openBelow<HttpSessionHandle, HttpConnectionHandle>("WinHttpConnect", session, describe);
}

Result<platform::InternetHandle> WinHttp::WinHttpOpenRequest(NativeHandle connection, const std::wstring& verb,
                                                             const std::wstring& path, std::uint32_t flags) {
  const auto describe = [&](const Request& request) {
    request->known.index = requests_.size();
    request->known.verb = verb.empty() ? L"GET" : verb;
    request->known.path = path;
    request->known.requestFlags = flags;
    requests_.push_back(request);
  };
  return openBelow<HttpConnectionHandle, HttpRequestHandle>("WinHttpOpenRequest", connection, describe);
}

Status WinHttp::WinHttpSetOption(NativeHandle handle, std::uint32_t option, std::uint32_t value) {
  return kernel_.callOn<HttpHandle>("WinHttpSetOption", handle, [&](HttpHandle& object) -> Status {
    const bool forRequest = option == platform::kOptionSecurityFlags || option == platform::kOptionEnableFeature;
    if (forRequest && dynamic_cast<HttpRequestHandle*>(&object) == nullptr) {
      return Failure{kErrorIncorrectHandleType};
    }
    object.known.numberOptions[option] = value;
    return kDone;
  });
}

Status WinHttp::WinHttpSetOption(NativeHandle handle, std::uint32_t option, const std::wstring& value) {
  return kernel_.callOn<HttpHandle>("WinHttpSetOption", handle, [&](HttpHandle& object) {
    object.known.textOptions[option] = value;
    return kDone;
  });
}

Status WinHttp::WinHttpSendRequest(NativeHandle handle, const std::wstring& headers,
                                   std::span<const std::byte> optionalData, std::uint32_t totalLength,
                                   std::uintptr_t context) {
  return start(
      handle, HttpStage::kSend, "WinHttpSendRequest",
      [&](HttpRequestHandle& request) -> platform::ErrorCode {
        if (request.known.sent) {
          return platform::kErrorWinHttpIncorrectHandleState;  // a request is sent once here
        }
        if (optionalData.size() > totalLength) {
          return platform::kErrorInvalidParameter;
        }
        request.known.headersText = headers;
        request.known.headers = parseHeaders(headers);
        request.known.totalLength = totalLength;
        request.known.context = context;
        request.known.sent = true;
        request.bound = true;
        request.pending->data = optionalData;
        return 0;
      },
      context);
}

Status WinHttp::WinHttpReceiveResponse(NativeHandle handle) {
  return start(handle, HttpStage::kReceive, "WinHttpReceiveResponse", [](HttpRequestHandle& request) {
    return request.known.sent && !request.headersReady ? 0 : platform::kErrorWinHttpIncorrectHandleState;
  });
}

Status WinHttp::WinHttpWriteData(NativeHandle handle, std::span<const std::byte> data) {
  return start(handle, HttpStage::kWrite, "WinHttpWriteData", [&](HttpRequestHandle& request) -> platform::ErrorCode {
    if (!request.known.sent || request.headersReady) {
      return platform::kErrorWinHttpIncorrectHandleState;
    }
    if (data.empty() || request.known.bodySize + data.size() > request.known.totalLength) {
      kernel_.misuse("WinHttpWriteData: nothing, or more than the length that was announced");
      return platform::kErrorInvalidParameter;
    }
    request.known.writes.push_back(data.size());
    request.pending->data = data;
    return 0;
  });
}

Status WinHttp::WinHttpQueryDataAvailable(NativeHandle handle) {
  return start(handle, HttpStage::kQueryData, "WinHttpQueryDataAvailable", [](HttpRequestHandle& request) {
    return request.headersReady ? 0 : platform::kErrorWinHttpIncorrectHandleState;
  });
}

Status WinHttp::WinHttpReadData(NativeHandle handle, std::span<std::byte> buffer) {
  return start(handle, HttpStage::kRead, "WinHttpReadData", [&](HttpRequestHandle& request) {
    request.pending->buffer = buffer;
    return request.headersReady ? 0 : platform::kErrorWinHttpIncorrectHandleState;
  });
}

Result<std::uint32_t> WinHttp::WinHttpQueryHeaders(NativeHandle handle, std::uint32_t level) {
  const bool known = level == (platform::kQueryStatusCode | platform::kQueryFlagNumber);
  return queryHeaders(handle, known, [](const HttpReply& reply) -> Result<std::uint32_t> {
    return {true, reply.status, 0};
  });
}

Result<std::uint32_t> WinHttp::WinHttpQueryHeaders(NativeHandle handle, std::uint32_t level,
                                                   std::span<wchar_t> buffer) {
  const bool known = level == platform::kQueryRawHeadersCrlf;
  return queryHeaders(handle, known, [&](const HttpReply& reply) -> Result<std::uint32_t> {
    const std::wstring text = rawHeaders(reply);
    const auto bytes = static_cast<std::uint32_t>(text.size() * sizeof(wchar_t));
    if (buffer.size() < text.size() + 1) {
      return {false, bytes + static_cast<std::uint32_t>(sizeof(wchar_t)), platform::kErrorInsufficientBuffer};
    }
    *std::copy(text.begin(), text.end(), buffer.begin()) = L'\0';
    return {true, bytes, 0};
  });
}

template <class Read>
Result<std::uint32_t> WinHttp::queryHeaders(NativeHandle handle, bool known, const Read& read) {
  const auto work = [&](HttpRequestHandle& request) -> Result<std::uint32_t> {
    if (!request.headersReady || !known) {
      return Failure{known ? platform::kErrorWinHttpIncorrectHandleState : kErrorHeaderNotFound};
    }
    return read(*request.reply);
  };
  return kernel_.callOn<HttpRequestHandle>("WinHttpQueryHeaders", handle, work);
}

Result<platform::UrlComponents> WinHttp::WinHttpCrackUrl(const std::wstring& url) {
  return kernel_.call("WinHttpCrackUrl", [&] { return splitUrl(url); });
}

}  // namespace sim
