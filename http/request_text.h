#pragma once

#include <string>
#include <string_view>

#include "http/http_request.h"

/// The texts of a request that goes out over WinHTTP. Pure functions.
namespace request_text {

/// Joins the header lines "name:value" in order with CRLF.
/// \return false, with an empty `block`, when a name or a value holds CR, LF or NUL: it would end its line early, and
///         what follows would be a line of its own.
/// \throws CORE::coreException "to_wstr Failed" for a text that is not UTF-8.
bool headerBlock(const HttpMap& headers, std::wstring& block);

/// Returns what WinHttpOpenRequest takes: the path, the URL's own query and the parameters, each as "name=value&" and
/// unescaped. The parameters follow the query after "&", or after "?" when the URL has none. A fragment of the URL is
/// left out: it is no part of a request.
/// \throws CORE::coreException "to_wstr Failed" for a parameter that is not UTF-8.
std::wstring target(std::wstring_view path, std::wstring_view extra, const HttpMap& parameters);

/// Returns the query in a URL's extra part: what stands between "?" and "#".
std::wstring_view queryOf(std::wstring_view extra);

}  // namespace request_text
