#include "platform/windows/windows_internet.h"

#include "platform/windows/native.h"

// After windows.h, which they need. wininet.h and winhttp.h declare the same names, so no file includes both.
#include <urlmon.h>
#include <wininet.h>

namespace platform {

static_assert(kSOk == S_OK);

namespace {

std::wstring component(const wchar_t* text, DWORD length) {
  return text == nullptr ? std::wstring() : std::wstring(text, length);
}

}  // namespace

std::int32_t WindowsInternet::IsValidURL(const std::wstring& url) { return ::IsValidURL(nullptr, url.c_str(), 0); }

Result<UrlComponents> WindowsInternet::InternetCrackUrlW(const std::wstring& url) {
  // A null pointer with a length other than 0 makes the call return a pointer into `url`.
  constexpr DWORD kAsk = static_cast<DWORD>(-1);
  URL_COMPONENTSW parts{};
  parts.dwStructSize = sizeof(parts);
  parts.dwSchemeLength = kAsk;
  parts.dwHostNameLength = kAsk;
  parts.dwUrlPathLength = kAsk;
  const BOOL cracked = ::InternetCrackUrlW(url.c_str(), 0, 0, &parts);
  const ErrorCode error = ::GetLastError();
  if (!cracked) {
    return {false, {}, error};
  }
  UrlComponents components;
  components.scheme = component(parts.lpszScheme, parts.dwSchemeLength);
  components.host = component(parts.lpszHostName, parts.dwHostNameLength);
  components.port = parts.nPort;
  components.path = component(parts.lpszUrlPath, parts.dwUrlPathLength);
  return {true, std::move(components), error};
}

}  // namespace platform
