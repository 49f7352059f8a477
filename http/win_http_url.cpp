#include <algorithm>
#include <utility>

#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/convert.h"
#include "http/request_text.h"
#include "http/win_http_request.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

bool WinHttpRequest::CrackURL(const std::wstring& url, std::uint32_t& scheme, std::wstring& host, std::uint16_t& port,
                              std::wstring& path, std::wstring& extra, bool plainHttpDefault) {
  std::wstring full = url;  // a copy: an output may be the input
  scheme = 0;
  host.clear();
  port = 0;
  path.clear();
  extra.clear();
  if (full.find(L"://") == std::wstring::npos) {
    full.insert(0, plainHttpDefault ? L"http://" : L"https://");
  }
  auto parts = platform::current().winHttp.WinHttpCrackUrl(full);
  if (!parts) {
    CORE::log(CORE::kError, L"WinHttpRequest::CrackURL(): Unable to parse full URL. error: %S. failing url: %s",
              CORE::toUtf8Lossy(CORE::moduleErrorText(L"winhttp.dll", parts.error)), full);
    return false;
  }
  scheme = parts.value.schemeNumber;
  host = std::move(parts.value.host);
  port = parts.value.port;
  path = std::move(parts.value.path);
  extra = std::move(parts.value.extra);
  return true;
}

QueryList WinHttpRequest::canonicalQuery() const {
  QueryList out;
  const std::string query = CORE::to_mstr(request_text::queryOf(extra_), CORE::kUtf8);
  for (std::size_t begin = 0; begin < query.size();) {
    const std::size_t end = std::min(query.find('&', begin), query.size());
    const std::string piece = query.substr(begin, end - begin);
    const std::size_t equals = std::min(piece.find('='), piece.size());
    if (!piece.empty()) {
      out.emplace_back(piece.substr(0, equals), piece.substr(std::min(equals + 1, piece.size())));
    }
    begin = end + 1;
  }
  out.insert(out.end(), queryParameters_.begin(), queryParameters_.end());
  std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return out;
}
