#include "upload/storage_signing.h"

#include <algorithm>
#include <array>
#include <optional>

#include "core/format/format.h"
#include "core/text/convert.h"
#include "core/text/text.h"
#include "platform/platform.h"
#include "platform/text.h"
#include "upload/digest/percent_decoding.h"

namespace StorageSigning {
namespace {

constexpr std::array<std::string_view, 7> kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::string_view kServiceHeaderPrefix = "x-ms-";

std::string headerValue(const HttpMap& headers, const char* name) {
  const auto found = headers.find(name);
  return found == headers.end() ? std::string() : found->second;
}

/// Compares the names of two query parameters. It is not CORE::equalNarrow, to which texts of different lengths are
/// different: the platform skips characters that have no weight, so to it they may be equal.
/// Source: CompareStringEx, remarks.
bool sameName(std::string_view first, std::string_view second) {
  return platform::current().text.CompareStringA(platform::kLocaleUserDefault, 0, first, second) ==
         platform::kCstrEqual;
}

}  // namespace

std::string dateText(const platform::SystemTime& utc) {
  // A number outside of the tables, which a broken clock could give, gets the nearest name instead of none at all.
  const std::string_view day = kDays[std::min<std::size_t>(utc.dayOfWeek, kDays.size() - 1)];
  const std::string_view month = kMonths[std::clamp<std::size_t>(utc.month, 1, kMonths.size()) - 1];
  return CORE::formatNarrow("%s, %02d %s %d %02d:%02d:%02d GMT", day, utc.day, month, utc.year, utc.hour, utc.minute,
                            utc.second);
}

std::string canonicalizedHeaders(const HttpMap& headers) {
  std::string text;
  for (const auto& [name, value] : headers) {
    if (name.starts_with(kServiceHeaderPrefix)) {
      text += CORE::formatNarrow("%s:%s\n", CORE::loweredNarrow(name), value);
    }
  }
  return text;
}

std::string accountName(std::wstring_view host, std::wstring_view path, bool pathStyle) {
  if (!pathStyle) {
    return CORE::to_mstr(host.substr(0, host.find(L'.')), CORE::kUtf8);
  }
  const std::wstring_view rest = path.substr(std::min<std::size_t>(path.size(), 1));
  return CORE::to_mstr(rest.substr(0, rest.find(L'/')), CORE::kUtf8);
}

std::string canonicalizedResource(std::string_view account, std::wstring_view path, QueryView query) {
  std::string text = "/";
  text += account;
  text += CORE::to_mstr(path, CORE::kUtf8);
  std::optional<std::string> previous;
  for (const auto& [name, value] : query) {
    std::string decodedName = percentDecode(CORE::loweredNarrow(name), true);
    const std::string decodedValue = percentDecode(value, true);
    if (previous && sameName(decodedName, *previous)) {
      text += ',';
    } else {
      text += '\n';
      text += decodedName;
      text += ':';
      previous = std::move(decodedName);
    }
    text += decodedValue;
  }
  return text;
}

std::string stringToSign(std::wstring_view verb, const HttpMap& headers, std::string_view canonicalHeaders,
                         std::string_view canonicalResource) {
  const auto value = [&headers](const char* name) { return headerValue(headers, name); };
  return CORE::formatNarrow("%s\n%s\n%s\n%s\n%s\n%s\n%s\n%s\n%s\n%s\n%s\n%s\n%s%s", CORE::to_mstr(verb, CORE::kUtf8),
                            value("Content-Encoding"), value("Content-Language"), value("Content-Length"),
                            value("Content-MD5"), value("Content-Type"), value("Date"), value("If-Modified-Since"),
                            value("If-Match"), value("If-None-Match"), value("If-Unmodified-Since"), value("Range"),
                            canonicalHeaders, canonicalResource);
}

}  // namespace StorageSigning
