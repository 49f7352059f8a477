#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "http/http_request.h"
#include "platform/internet.h"

/// Names and values of a query, ordered byte-wise by name; a name may repeat, and its values then keep their order.
using QueryList = std::vector<std::pair<std::string, std::string>>;

/// Splits a URL as WinHTTP does; one without "://" gets the default scheme, HTTPS or plain HTTP.
/// \return scheme number, host, port, path and extra part; nothing when the platform cannot parse it, which is logged.
/// Source: WinHttpCrackUrl.
std::optional<platform::UrlComponents> crackUrl(std::wstring url, bool plainHttpDefault);

/// Where one request goes: its URL, taken apart for WinHttpConnect and WinHttpOpenRequest. Written by the thread that
/// starts the request, before the send; any thread reads it afterwards.
class RequestTarget {
 public:
  /// Takes a URL in UTF-8; without a scheme it is HTTPS.
  /// \return false when the platform cannot parse it; then only url() is set.
  /// \throws CORE::coreException "to_wstr Failed" for a text that is not UTF-8; nothing is changed then.
  bool parse(const std::string& url);

  const std::wstring& url() const { return url_; }
  const std::wstring& host() const { return parts_.host; }
  std::uint16_t port() const { return parts_.port; }
  /// The path as it stands in the URL, without the query.
  const std::wstring& path() const { return parts_.path; }
  bool isHttps() const;

  /// Returns what WinHttpOpenRequest takes: path, query and parameters; see request_text::target.
  std::wstring requestLine(const HttpMap& parameters) const;

  /// Returns the URL's own query parameters, undecoded, and the given ones in one list.
  QueryList canonicalQuery(const HttpMap& parameters) const;

 private:
  std::wstring url_;
  platform::UrlComponents parts_;
};
