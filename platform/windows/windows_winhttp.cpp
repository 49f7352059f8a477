#include "platform/windows/windows_winhttp.h"

#include <atomic>

#include "platform/windows/native.h"

// After windows.h, which it needs.
#include <winhttp.h>

namespace platform {
namespace {

std::atomic<StatusCallback> registeredCallback{nullptr};

// noexcept: WinHTTP's frames cannot carry an exception.
void CALLBACK forwardStatus(HINTERNET handle, DWORD_PTR context, DWORD status, void* information,
                            DWORD informationLength) noexcept {
  if (const StatusCallback callback = registeredCallback.load()) {
    callback(handle, context, status, information, informationLength);
  }
}

const wchar_t* textOrNull(const std::wstring& text) { return text.empty() ? nullptr : text.c_str(); }

Result<InternetHandle> handleOf(HINTERNET handle) {
  const ErrorCode error = ::GetLastError();
  return {handle != nullptr, InternetHandle(handle), error};
}

constexpr Status kTooLong = {false, kErrorInvalidParameter};

std::wstring component(const wchar_t* text, DWORD length) {
  return text == nullptr ? std::wstring() : std::wstring(text, length);
}

}  // namespace

Result<InternetHandle> WindowsWinHttp::WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType,
                                                   const std::wstring& proxy, const std::wstring& bypass,
                                                   std::uint32_t flags) {
  static_assert(WINHTTP_NO_PROXY_NAME == nullptr && WINHTTP_NO_PROXY_BYPASS == nullptr);
  return handleOf(::WinHttpOpen(userAgent.c_str(), accessType, textOrNull(proxy), textOrNull(bypass), flags));
}

Status WindowsWinHttp::WinHttpSetTimeouts(NativeHandle session, int resolve, int connect, int send, int receive) {
  return statusOf(::WinHttpSetTimeouts(session, resolve, connect, send, receive));
}

Status WindowsWinHttp::WinHttpSetStatusCallback(NativeHandle handle, StatusCallback callback, std::uint32_t mask) {
  registeredCallback.store(callback);
  const WINHTTP_STATUS_CALLBACK forward = callback == nullptr ? nullptr : &forwardStatus;
  const WINHTTP_STATUS_CALLBACK previous = ::WinHttpSetStatusCallback(handle, forward, mask, 0);
  const ErrorCode error = ::GetLastError();
  return {previous != WINHTTP_INVALID_STATUS_CALLBACK, error};
}

Result<InternetHandle> WindowsWinHttp::WinHttpConnect(NativeHandle session, const std::wstring& host,
                                                      std::uint16_t port) {
  return handleOf(::WinHttpConnect(session, host.c_str(), port, 0));
}

Result<InternetHandle> WindowsWinHttp::WinHttpOpenRequest(NativeHandle connection, const std::wstring& verb,
                                                          const std::wstring& path, std::uint32_t flags) {
  return handleOf(::WinHttpOpenRequest(connection, verb.c_str(), path.c_str(), nullptr, WINHTTP_NO_REFERER,
                                       WINHTTP_DEFAULT_ACCEPT_TYPES, flags));
}

Status WindowsWinHttp::WinHttpSetOption(NativeHandle handle, std::uint32_t option, std::uint32_t value) {
  DWORD number = value;
  return statusOf(::WinHttpSetOption(handle, option, &number, sizeof(number)));
}

Status WindowsWinHttp::WinHttpSetOption(NativeHandle handle, std::uint32_t option, const std::wstring& value) {
  // The call only reads the text, although it takes a pointer to non-const. No copy is made, which could hold a
  // password. The length counts characters.
  return statusOf(::WinHttpSetOption(handle, option, const_cast<wchar_t*>(value.c_str()), atMostDword(value.size())));
}

Status WindowsWinHttp::WinHttpSendRequest(NativeHandle request, const std::wstring& headers,
                                          std::span<const std::byte> optionalData, std::uint32_t totalLength,
                                          std::uintptr_t context) {
  if (!fitsDword(headers.size()) || !fitsDword(optionalData.size())) {
    return kTooLong;
  }
  // The call only reads the data, although it takes a pointer to non-const.
  void* const data = optionalData.empty() ? WINHTTP_NO_REQUEST_DATA : const_cast<std::byte*>(optionalData.data());
  return statusOf(::WinHttpSendRequest(request, textOrNull(headers), static_cast<DWORD>(headers.size()), data,
                                       static_cast<DWORD>(optionalData.size()), totalLength, context));
}

Status WindowsWinHttp::WinHttpReceiveResponse(NativeHandle request) {
  return statusOf(::WinHttpReceiveResponse(request, nullptr));
}

Result<std::uint32_t> WindowsWinHttp::WinHttpQueryHeaders(NativeHandle request, std::uint32_t level) {
  DWORD number = 0;
  DWORD size = sizeof(number);
  const BOOL found =
      ::WinHttpQueryHeaders(request, level, WINHTTP_HEADER_NAME_BY_INDEX, &number, &size, WINHTTP_NO_HEADER_INDEX);
  return resultOf(found, std::uint32_t{number});
}

Result<std::uint32_t> WindowsWinHttp::WinHttpQueryHeaders(NativeHandle request, std::uint32_t level,
                                                          std::span<wchar_t> buffer) {
  DWORD size = atMostDword(buffer.size_bytes());
  wchar_t* const text = buffer.empty() ? nullptr : buffer.data();
  const BOOL found =
      ::WinHttpQueryHeaders(request, level, WINHTTP_HEADER_NAME_BY_INDEX, text, &size, WINHTTP_NO_HEADER_INDEX);
  const ErrorCode error = ::GetLastError();
  return {found != FALSE, size, error};
}

Status WindowsWinHttp::WinHttpQueryDataAvailable(NativeHandle request) {
  return statusOf(::WinHttpQueryDataAvailable(request, nullptr));
}

Status WindowsWinHttp::WinHttpReadData(NativeHandle request, std::span<std::byte> buffer) {
  return statusOf(::WinHttpReadData(request, buffer.data(), atMostDword(buffer.size()), nullptr));
}

Status WindowsWinHttp::WinHttpWriteData(NativeHandle request, std::span<const std::byte> data) {
  if (!fitsDword(data.size())) {
    return kTooLong;
  }
  return statusOf(::WinHttpWriteData(request, data.data(), static_cast<DWORD>(data.size()), nullptr));
}

Status WindowsWinHttp::WinHttpCloseHandle(NativeHandle handle) { return statusOf(::WinHttpCloseHandle(handle)); }

Result<NativeHandle> WindowsWinHttp::WinHttpQueryOption(NativeHandle request, std::uint32_t option) {
  void* context = nullptr;
  DWORD size = sizeof(context);
  const BOOL found = ::WinHttpQueryOption(request, option, &context, &size);
  return resultOf(found, context);
}

Result<UrlComponents> WindowsWinHttp::WinHttpCrackUrl(const std::wstring& url) {
  // A null pointer with a length other than 0 makes the call return a pointer into `url`.
  constexpr DWORD kAsk = static_cast<DWORD>(-1);
  if (!fitsDword(url.size())) {
    return {false, {}, kErrorInvalidParameter};
  }
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  parts.dwSchemeLength = kAsk;
  parts.dwHostNameLength = kAsk;
  parts.dwUserNameLength = kAsk;
  parts.dwPasswordLength = kAsk;
  parts.dwUrlPathLength = kAsk;
  parts.dwExtraInfoLength = kAsk;
  const BOOL cracked = ::WinHttpCrackUrl(url.c_str(), static_cast<DWORD>(url.size()), 0, &parts);
  const ErrorCode error = ::GetLastError();
  if (!cracked) {
    return {false, {}, error};
  }
  UrlComponents components;
  components.schemeNumber = static_cast<std::uint32_t>(parts.nScheme);
  components.scheme = component(parts.lpszScheme, parts.dwSchemeLength);
  components.host = component(parts.lpszHostName, parts.dwHostNameLength);
  components.port = parts.nPort;
  components.path = component(parts.lpszUrlPath, parts.dwUrlPathLength);
  components.extra = component(parts.lpszExtraInfo, parts.dwExtraInfoLength);
  return {true, std::move(components), error};
}

}  // namespace platform
