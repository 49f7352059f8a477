#include "http/request_target.h"

#include <algorithm>

#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/convert.h"
#include "http/request_text.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

std::optional<platform::UrlComponents> crackUrl(std::wstring url, bool plainHttpDefault) {
  if (url.find(L"://") == std::wstring::npos) {
    url.insert(0, plainHttpDefault ? L"http://" : L"https://");
  }
  auto parts = platform::current().winHttp.WinHttpCrackUrl(url);
  if (!parts) {
    // The text names WinHttpRequest's own splitter, which calls this one.
    CORE::log(CORE::kError, L"WinHttpRequest::CrackURL(): Unable to parse full URL. error: %S. failing url: %s",
              CORE::toUtf8Lossy(CORE::moduleErrorText(L"winhttp.dll", parts.error)), url);
    return std::nullopt;
  }
  return std::move(parts.value);
}

bool RequestTarget::parse(const std::string& url) {
  url_ = CORE::to_wstr(url, CORE::kUtf8);
  auto parts = crackUrl(url_, false);
  const bool parsed = parts.has_value();
  parts_ = std::move(parts).value_or(platform::UrlComponents{});
  return parsed;
}

bool RequestTarget::isHttps() const { return parts_.schemeNumber == platform::kSchemeHttps; }

std::wstring RequestTarget::requestLine(const HttpMap& parameters) const {
  return request_text::target(parts_.path, parts_.extra, parameters);
}

QueryList RequestTarget::canonicalQuery(const HttpMap& parameters) const {
  QueryList out;
  const std::string query = CORE::to_mstr(request_text::queryOf(parts_.extra), CORE::kUtf8);
  for (std::size_t begin = 0; begin < query.size();) {
    const std::size_t end = std::min(query.find('&', begin), query.size());
    const std::string piece = query.substr(begin, end - begin);
    const std::size_t equals = std::min(piece.find('='), piece.size());
    if (!piece.empty()) {
      out.emplace_back(piece.substr(0, equals), piece.substr(std::min(equals + 1, piece.size())));
    }
    begin = end + 1;
  }
  out.insert(out.end(), parameters.begin(), parameters.end());
  std::stable_sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return out;
}
