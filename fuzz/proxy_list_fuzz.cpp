#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/convert.h"
#include "fuzz/check.h"
#include "http/proxy_list.h"

// Proxy lists come from the registry, from the user's settings and from WinHTTP's own. The checks count and search the
// text in their own, plainer way.

namespace {

using Entries = std::vector<std::wstring>;

constexpr std::wstring_view kSeparators = L"; \t\r\n";

std::size_t countTokens(std::wstring_view text) {
  std::size_t tokens = 0;
  std::wstring token;
  for (const wchar_t c : std::wstring(text) + L';') {
    if (kSeparators.find(c) == kSeparators.npos) {
      token += c;
      continue;
    }
    const bool counts = !token.empty() && token != L"http=" && token != L"https=" && token != L"socks=";
    tokens += counts ? 1 : 0;
    token.clear();
  }
  return tokens;
}

/// Every entry is there in the text, in this order, but for the scheme that was put in front.
void checkOrigin(const Entries& entries, std::wstring_view text, bool mayLackScheme) {
  std::size_t at = 0;
  for (const auto& entry : entries) {
    std::wstring_view rest = entry;
    FUZZ_CHECK(!rest.empty() && rest.find_first_of(kSeparators) == rest.npos);
    FUZZ_CHECK(mayLackScheme || rest.find(L"://") != rest.npos);
    if (rest.starts_with(L"http://")) {
      rest.remove_prefix(7);
    }
    const std::size_t found = text.find(rest, at);
    FUZZ_CHECK(found != text.npos);
    at = found + rest.size();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = CORE::toWideLossy({reinterpret_cast<const char*>(data), size});
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
  FUZZ_CHECK(again.plain == table.plain);
  FUZZ_CHECK(again.http.empty() && again.https.empty() && again.socks.empty());
  return 0;
}
