#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "http/http_request.h"
#include "platform/clock.h"

/// The texts of the storage service's shared-key scheme, each a function of plain inputs.
/// Source: the storage service's REST documentation, "Authorize with Shared Key", version 2020-04-08. Differences from
/// it that a text below shows (no trimming, no sorting after decoding) are deliberate.
/// Every function throws CORE::coreException for wide text that cannot be encoded, and std::bad_alloc.
namespace StorageSigning {

inline constexpr std::string_view kServiceVersion = "2020-04-08";

/// Names and undecoded values of a query, ordered byte-wise by name as it stands in the URL.
using QueryView = std::span<const std::pair<std::string, std::string>>;

/// "Fri, 13 Nov 2026 04:02:42 GMT": the value of "x-ms-date" (RFC 7231, section 7.1.1.1).
std::string dateText(const platform::SystemTime& utc);

/// One line "name:value" for each header whose name begins with "x-ms-" in exactly this case, in map order, the name
/// lower-cased and the value as it is.
std::string canonicalizedHeaders(const HttpMap& headers);

/// The account a request goes to, in UTF-8: the first label of the host name, or with `pathStyle` the first segment of
/// the path.
std::string accountName(std::wstring_view host, std::wstring_view path, bool pathStyle);

/// "/", the account name and the undecoded path, followed by a line "name:value" for each query parameter: names
/// lower-cased and decoded, values decoded ("+" is a space), values of equal neighbouring names joined by commas.
/// \param path  the URL's path without its query; in path style it begins with the account name, which then stands
///              twice.
std::string canonicalizedResource(std::string_view account, std::wstring_view path, QueryView query);

/// The text that the signature is made over: verb, eleven standard headers (empty when absent), then the two texts.
std::string stringToSign(std::wstring_view verb, const HttpMap& headers, std::string_view canonicalHeaders,
                         std::string_view canonicalResource);

}  // namespace StorageSigning
