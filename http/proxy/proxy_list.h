#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Texts that name proxies, as WinHTTP and the user's settings write them: entries separated by ";" or blanks, each
/// "proxy" for every scheme or "http=proxy", "https=proxy", "socks=proxy" for one. Pure; linear in the text's length;
/// \throws std::bad_alloc only.
namespace proxy_list {

/// The entries by scheme, in the text's order. "http://" stands in front of each that named no scheme ("://") of its
/// own, except those for socks. None is empty or holds a separator.
struct Table {
  std::vector<std::wstring> http;
  std::vector<std::wstring> https;
  std::vector<std::wstring> socks;
  std::vector<std::wstring> plain;  ///< for every scheme
};

/// Takes a list apart. Empty entries and entries with an empty value are dropped; the prefixes are taken exactly, so
/// that "HTTP=" is part of a plain entry.
Table parse(std::wstring_view list);

/// The scheme's own entries, then the plain ones.
std::vector<std::wstring> withPlain(std::vector<std::wstring> own, const Table& table);

/// The entries with ";" between them.
std::wstring join(const std::vector<std::wstring>& entries);

}  // namespace proxy_list
