#include "tests/sim/winhttp.h"

#include <algorithm>

#include "tests/sim/http_handles.h"
#include "tests/sim/internet.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

constexpr platform::ErrorCode kErrorHeaderNotFound = 12150;
constexpr platform::ErrorCode kErrorIncorrectHandleType = 12018;

std::string narrow(std::wstring_view text) {
  std::string result;
  for (const wchar_t character : text) {
    const auto code = codeOf(character);
    result += code < 0x100 ? static_cast<char>(code) : '?';
  }
  return result;
}

std::string trim(const std::string& text) {
  const auto first = text.find_first_not_of(" \t");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::vector<std::pair<std::string, std::string>> parseHeaders(const std::wstring& block) {
  std::vector<std::pair<std::string, std::string>> headers;
  for (std::size_t at = 0; at < block.size();) {
    const auto end = std::min(block.find(L"\r\n", at), block.size());
    const std::string line = narrow(std::wstring_view(block).substr(at, end - at));
    const auto colon = line.find(':');
    if (colon != std::string::npos) {
      headers.emplace_back(line.substr(0, colon), trim(line.substr(colon + 1)));
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

std::vector<std::uint32_t> WinHttp::notifications(std::size_t index) const {
  const Guard guard(kernel_.mutex);
  return index < requests_.size() ? requests_[index]->notifications : std::vector<std::uint32_t>{};
}

platform::Result<platform::InternetHandle> WinHttp::WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType,
                                                                const std::wstring& proxy, const std::wstring& bypass,
                                                                std::uint32_t flags) {
  if (const auto error = kernel_.faults.pass("WinHttpOpen")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  auto session = std::make_shared<HttpSessionHandle>();
  session->known.userAgent = userAgent;
  session->known.accessType = accessType;
  session->known.proxy = proxy;
  session->known.bypass = bypass;
  session->known.sessionFlags = flags;
  session->handle = kernel_.add(session);
  return {true, platform::InternetHandle(session->handle), 0};
}

platform::Status WinHttp::WinHttpSetTimeouts(platform::NativeHandle session, int resolve, int connect, int send,
                                             int receive) {
  if (const auto error = kernel_.faults.pass("WinHttpSetTimeouts")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<HttpHandle>(session, "WinHttpSetTimeouts");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  if (std::min({resolve, connect, send, receive}) < -1) {
    return {false, platform::kErrorInvalidParameter};
  }
  object->known.timeouts = {resolve, connect, send, receive};
  return {true, 0};
}

platform::Status WinHttp::WinHttpSetStatusCallback(platform::NativeHandle handle, platform::StatusCallback callback,
                                                   std::uint32_t mask) {
  if (const auto error = kernel_.faults.pass("WinHttpSetStatusCallback")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<HttpHandle>(handle, "WinHttpSetStatusCallback");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  object->callback = callback;
  object->mask = mask;
  object->known.callbackMask = mask;
  return {true, 0};
}

platform::Result<platform::InternetHandle> WinHttp::WinHttpConnect(platform::NativeHandle session,
                                                                   const std::wstring& host, std::uint16_t port) {
  if (const auto error = kernel_.faults.pass("WinHttpConnect")) {
    return {false, {}, *error};
  }
  Guard guard(kernel_.mutex);
  const auto parent = kernel_.get<HttpSessionHandle>(session, "WinHttpConnect");
  if (parent == nullptr) {
    return {false, {}, platform::kErrorInvalidHandle};
  }
  auto connection = std::make_shared<HttpConnectionHandle>();
  connection->inherit(*parent);
  connection->known.host = host;
  connection->known.port = port;
  connection->handle = kernel_.add(connection);
  guard.unlock();
  unbound(*connection, platform::kStatusHandleCreated);
  return {true, platform::InternetHandle(connection->handle), 0};
}

platform::Result<platform::InternetHandle> WinHttp::WinHttpOpenRequest(platform::NativeHandle connection,
                                                                       const std::wstring& verb,
                                                                       const std::wstring& path, std::uint32_t flags) {
  if (const auto error = kernel_.faults.pass("WinHttpOpenRequest")) {
    return {false, {}, *error};
  }
  Guard guard(kernel_.mutex);
  const auto parent = kernel_.get<HttpConnectionHandle>(connection, "WinHttpOpenRequest");
  if (parent == nullptr) {
    return {false, {}, platform::kErrorInvalidHandle};
  }
  auto request = std::make_shared<HttpRequestHandle>();
  request->inherit(*parent);
  request->known.index = requests_.size();
  request->known.verb = verb.empty() ? L"GET" : verb;
  request->known.path = path;
  request->known.requestFlags = flags;
  request->known.secure = (flags & platform::kWinHttpFlagSecure) != 0;
  request->handle = kernel_.add(request);
  requests_.push_back(request);
  guard.unlock();
  unbound(*request, platform::kStatusHandleCreated);
  return {true, platform::InternetHandle(request->handle), 0};
}

platform::Status WinHttp::WinHttpSetOption(platform::NativeHandle handle, std::uint32_t option, std::uint32_t value) {
  if (const auto error = kernel_.faults.pass("WinHttpSetOption")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<HttpHandle>(handle, "WinHttpSetOption");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  const bool forRequest = option == platform::kOptionSecurityFlags || option == platform::kOptionEnableFeature;
  if (forRequest && std::dynamic_pointer_cast<HttpRequestHandle>(object) == nullptr) {
    return {false, kErrorIncorrectHandleType};
  }
  object->known.numberOptions[option] = value;
  return {true, 0};
}

platform::Status WinHttp::WinHttpSetOption(platform::NativeHandle handle, std::uint32_t option,
                                           const std::wstring& value) {
  if (const auto error = kernel_.faults.pass("WinHttpSetOption")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<HttpHandle>(handle, "WinHttpSetOption");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  object->known.textOptions[option] = value;
  return {true, 0};
}

platform::Status WinHttp::WinHttpSendRequest(platform::NativeHandle handle, const std::wstring& headers,
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
        request.known.optionalSize = optionalData.size();
        request.known.context = context;
        request.known.sent = true;
        request.bound = true;
        request.pending->data = optionalData;
        return 0;
      },
      context);
}

platform::Status WinHttp::WinHttpReceiveResponse(platform::NativeHandle handle) {
  return start(handle, HttpStage::kReceive, "WinHttpReceiveResponse", [](HttpRequestHandle& request) {
    return request.known.sent && !request.headersReady ? 0 : platform::kErrorWinHttpIncorrectHandleState;
  });
}

platform::Status WinHttp::WinHttpWriteData(platform::NativeHandle handle, std::span<const std::byte> data) {
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

platform::Status WinHttp::WinHttpQueryDataAvailable(platform::NativeHandle handle) {
  return start(handle, HttpStage::kQueryData, "WinHttpQueryDataAvailable", [](HttpRequestHandle& request) {
    return request.headersReady ? 0 : platform::kErrorWinHttpIncorrectHandleState;
  });
}

platform::Status WinHttp::WinHttpReadData(platform::NativeHandle handle, std::span<std::byte> buffer) {
  return start(handle, HttpStage::kRead, "WinHttpReadData", [&](HttpRequestHandle& request) {
    request.pending->buffer = buffer;
    return request.headersReady ? 0 : platform::kErrorWinHttpIncorrectHandleState;
  });
}

platform::Result<std::uint32_t> WinHttp::WinHttpQueryHeaders(platform::NativeHandle handle, std::uint32_t level) {
  if (const auto error = kernel_.faults.pass("WinHttpQueryHeaders")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto request = kernel_.get<HttpRequestHandle>(handle, "WinHttpQueryHeaders");
  if (request == nullptr) {
    return {false, 0, platform::kErrorInvalidHandle};
  }
  if (!request->headersReady) {
    return {false, 0, platform::kErrorWinHttpIncorrectHandleState};
  }
  if (level != (platform::kQueryStatusCode | platform::kQueryFlagNumber)) {
    return {false, 0, kErrorHeaderNotFound};
  }
  return {true, request->reply->status, 0};
}

platform::Result<std::uint32_t> WinHttp::WinHttpQueryHeaders(platform::NativeHandle handle, std::uint32_t level,
                                                             std::span<wchar_t> buffer) {
  if (const auto error = kernel_.faults.pass("WinHttpQueryHeaders")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto request = kernel_.get<HttpRequestHandle>(handle, "WinHttpQueryHeaders");
  if (request == nullptr) {
    return {false, 0, platform::kErrorInvalidHandle};
  }
  if (!request->headersReady) {
    return {false, 0, platform::kErrorWinHttpIncorrectHandleState};
  }
  if (level != platform::kQueryRawHeadersCrlf) {
    return {false, 0, kErrorHeaderNotFound};
  }
  const std::wstring text = rawHeaders(*request->reply);
  const auto bytes = static_cast<std::uint32_t>(text.size() * sizeof(wchar_t));
  if (buffer.size() < text.size() + 1) {
    return {false, bytes + static_cast<std::uint32_t>(sizeof(wchar_t)), platform::kErrorInsufficientBuffer};
  }
  *std::copy(text.begin(), text.end(), buffer.begin()) = L'\0';
  return {true, bytes, 0};
}

platform::Result<platform::UrlComponents> WinHttp::WinHttpCrackUrl(const std::wstring& url) {
  if (const auto error = kernel_.faults.pass("WinHttpCrackUrl")) {
    return {false, {}, *error};
  }
  return splitUrl(url);
}

}  // namespace sim
