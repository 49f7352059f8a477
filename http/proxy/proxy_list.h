#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Texts that name proxies, as WinHTTP and the user's settings write them. Entries are separated by ";" or blanks. An
/// entry is "proxy" for every scheme, or "http=proxy", "https=proxy" or "socks=proxy" for one. Pure functions, linear
/// in the text's length; std::bad_alloc is the only exception.
namespace proxy_list {

/// The entries by scheme, in the text's order. "http://" stands in front of each entry without a "://" of its own, but
/// for those of socks. No entry is empty or holds a separator.
struct Table {
  std::vector<std::wstring> http;
  std::vector<std::wstring> https;
  std::vector<std::wstring> socks;
  std::vector<std::wstring> plain;  ///< for every scheme
};

/// Splits a list into its entries. Drops empty entries, entries with an empty value, and those of "ftp=". Prefixes
/// count in upper and lower case. Slashes at the end of an entry are removed.
Table parse(std::wstring_view list);

/// Returns the scheme's own entries, then the plain ones.
std::vector<std::wstring> withPlain(std::vector<std::wstring> own, const Table& table);

/// Joins the entries with ";" between them.
std::wstring join(const std::vector<std::wstring>& entries);

}  // namespace proxy_list
