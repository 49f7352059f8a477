#include "http/proxy/proxy_list.h"

#include <algorithm>

#include "core/text/text.h"

namespace proxy_list {
namespace {

constexpr std::wstring_view kSeparators = L"; \t\r\n";

std::wstring withScheme(std::wstring_view proxy) {
  std::wstring entry(proxy.find(L"://") == proxy.npos ? L"http://" : L"");
  entry += proxy;
  return entry;
}

/// Removes the prefix, which is in lower case; false when the entry does not begin with it in any case.
bool takePrefix(std::wstring_view& entry, std::wstring_view prefix) {
  const auto lower = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + (L'a' - L'A')) : c; };
  if (!std::ranges::equal(entry.substr(0, prefix.size()), prefix, {}, lower)) {
    return false;
  }
  entry.remove_prefix(prefix.size());
  return true;
}

void add(std::wstring_view entry, Table& table) {
  if (takePrefix(entry, L"ftp=")) {
    return;  // no request goes there
  }
  const bool socks = takePrefix(entry, L"socks=");
  auto& entries = socks                          ? table.socks
                  : takePrefix(entry, L"http=")  ? table.http
                  : takePrefix(entry, L"https=") ? table.https
                                                 : table.plain;
  entry = entry.substr(0, entry.find_last_not_of(L'/') + 1);  // WinHTTP takes a host and a port
  if (!entry.empty()) {
    entries.push_back(socks ? std::wstring(entry) : withScheme(entry));
  }
}

}  // namespace

Table parse(std::wstring_view list) {
  Table table;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find_first_of(kSeparators), list.size());
    add(list.substr(0, end), table);
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return table;
}

std::vector<std::wstring> withPlain(std::vector<std::wstring> own, const Table& table) {
  own.insert(own.end(), table.plain.begin(), table.plain.end());
  return own;
}

std::wstring join(const std::vector<std::wstring>& entries) { return CORE::joinStrings(entries, L";"); }

}  // namespace proxy_list
