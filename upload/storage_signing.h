#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "http/http_request.h"
#include "platform/clock.h"

/// The texts of the storage service's shared-key scheme. Each function works on its arguments alone; any thread.
///
/// Where a function differs from the document below (it trims no value, and it does not sort again after decoding), the
/// difference is deliberate.
///
/// \throws CORE::coreException for wide text that cannot be encoded, and std::bad_alloc (every function).
/// Source: the storage service's REST documentation, "Authorize with Shared Key", version 2020-04-08.
namespace StorageSigning {

inline constexpr std::string_view kServiceVersion = "2020-04-08";

/// The parameters of a query, names and values undecoded, ordered byte-wise by the names as they stand in the URL.
using QueryView = std::span<const std::pair<std::string, std::string>>;

/// Returns the value of "x-ms-date": "Fri, 13 Nov 2026 04:02:42 GMT" (RFC 7231, section 7.1.1.1).
std::string dateText(const platform::SystemTime& utc);

/// Returns one line "name:value" for each header whose name begins with "x-ms-" in exactly this case. The lines stand
/// in the order of the map. The name is lower-cased, the value is not changed.
std::string canonicalizedHeaders(const HttpMap& headers);

/// Returns the name of the account that a request goes to, in UTF-8.
/// \param pathStyle  true: the name is the first segment of the path; false: the first label of the host name.
std::string accountName(std::wstring_view host, std::wstring_view path, bool pathStyle);

/// Returns "/", the account name and the undecoded path, followed by a line "name:value" for each query parameter. The
/// names are lower-cased and then decoded, the values decoded ("+" is a space). The values of neighbours with equal
/// names are joined by commas.
/// \param path  the URL's path without its query. In path style it begins with the account name, which then stands
///              twice in the result.
std::string canonicalizedResource(std::string_view account, std::wstring_view path, QueryView query);

/// Returns the text that is signed: the verb, the values of eleven standard headers (empty when absent), then the two
/// texts.
/// \param canonicalHeaders   the result of canonicalizedHeaders().
/// \param canonicalResource  the result of canonicalizedResource().
std::string stringToSign(std::wstring_view verb, const HttpMap& headers, std::string_view canonicalHeaders,
                         std::string_view canonicalResource);

}  // namespace StorageSigning
