#include "http/proxy/wininet_url.h"

#include <utility>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/internet.h"
#include "platform/platform.h"

namespace util {

bool WinInet::CrackUrl(const std::wstring& url, std::wstring& scheme, std::wstring& host, std::uint16_t& port,
                       std::wstring& path, bool plainHttpDefault) {
  std::wstring full = url;  // a copy: an output may be the input
  scheme.clear();
  host.clear();
  port = 0;
  path.clear();
  if (full.find(L' ') != std::wstring::npos) {  // kept: a blank is refused even inside the query
    CORE::log(CORE::kError, L"util::WinInet::CrackUrl(): Spaces are not supported.");
    return false;
  }
  if (full.find(L"//") == std::wstring::npos) {  // kept: "//", not "://", and anywhere
    full.insert(0, plainHttpDefault ? L"http://" : L"https://");
  }
  auto parts = platform::current().internet.InternetCrackUrlW(full);
  if (!parts) {
    CORE::log(CORE::kError, L"util::WinInet::CrackUrl(): InternetCrackUrl failed. Error: %s.",
              CORE::systemErrorText(parts.error));
    return false;
  }
  scheme = std::move(parts.value.scheme);
  host = std::move(parts.value.host);
  port = parts.value.port;
  path = std::move(parts.value.path);
  return true;
}

}  // namespace util
