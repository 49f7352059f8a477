#include <algorithm>

#include "core/base/unicode.h"
#include "fuzz/fuzz.h"
#include "http/proxy/proxy_list.h"

// Proxy lists come from the registry, from the user's settings and from WinHTTP's own. The checks count the entries and
// search them in the text with simpler code of their own.

namespace {

constexpr std::wstring_view kSeparators = L"; \t\r\n";

/// Whether a piece of the list names no proxy for this program.
bool isDropped(std::wstring token) {
  std::ranges::transform(token, token.begin(), [](wchar_t c) { return c >= L'A' && c <= L'Z' ? c + 32 : c; });
  for (const std::wstring prefix : {L"http=", L"https=", L"socks=", L"ftp="}) {
    if (token.starts_with(prefix)) {
      return prefix == L"ftp=" || token.find_first_not_of(L'/', prefix.size()) == token.npos;
    }
  }
  return token.find_first_not_of(L'/') == token.npos;
}

std::size_t countTokens(std::wstring_view text) {
  std::size_t tokens = 0;
  std::wstring token;
  for (const wchar_t c : std::wstring(text) + L';') {
    if (kSeparators.find(c) == kSeparators.npos) {
      token += c;
      continue;
    }
    tokens += isDropped(token) ? 0 : 1;
    token.clear();
  }
  return tokens;
}

/// Checks that the text holds every entry, in this order, without the scheme that was put in front.
void checkOrigin(const std::vector<std::wstring>& entries, std::wstring_view text, bool mayLackScheme) {
  std::size_t at = 0;
  for (const auto& entry : entries) {
    FUZZ_CHECK(!entry.empty() && entry.find_first_of(kSeparators) == entry.npos);
    FUZZ_CHECK(mayLackScheme || entry.find(L"://") != entry.npos);
    const std::wstring rest = entry.substr(entry.starts_with(L"http://") ? 7 : 0);
    at = text.find(rest, at);
    FUZZ_CHECK(at != text.npos);
    at += rest.size();
  }
}

}  // namespace

void fuzz::target(std::string_view input) {
  const std::wstring text = CORE::toWideLossy(input);
  const auto table = proxy_list::parse(text);
  std::size_t entries = 0;
  std::size_t characters = 0;
  for (const auto* const list : {&table.http, &table.https, &table.socks, &table.plain}) {
    checkOrigin(*list, text, list == &table.socks);
    entries += list->size();
    characters += proxy_list::join(*list).size() + 1;
  }
  FUZZ_CHECK(entries == countTokens(text));
  FUZZ_CHECK(characters <= text.size() + 7 * entries + 4);  // "http://" at most in front of each

  const auto again = proxy_list::parse(proxy_list::join(table.plain));
  FUZZ_CHECK(again.plain == table.plain && again.http.empty() && again.https.empty() && again.socks.empty());
}
