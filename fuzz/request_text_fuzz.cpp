#include <algorithm>

#include "core/base/unicode.h"
#include "core/text/convert.h"
#include "fuzz/fuzz.h"
#include "http/request_text.h"

// Path, extra part, then names and values, separated by "|". No header may break out of its line.

namespace {

std::wstring wide(const std::string& text) { return CORE::to_wstr(text, CORE::kUtf8); }

void checkHeaders(const HttpMap& headers) {
  bool clean = true;
  std::wstring wanted;
  for (const auto& [name, value] : headers) {
    clean = clean && (name + value).find_first_of(std::string_view("\r\n\0", 3)) == name.npos;
    wanted += (wanted.empty() ? L"" : L"\r\n") + wide(name + ":" + value);
  }
  std::wstring block = L"old";
  FUZZ_CHECK(request_text::headerBlock(headers, block) == clean);
  FUZZ_CHECK(block == (clean ? wanted : L""));
}

void checkTarget(const std::wstring& path, const std::wstring& extra, const HttpMap& parameters) {
  const std::wstring front = path + extra.substr(0, extra.find(L'#'));  // a fragment never leaves
  FUZZ_CHECK(request_text::target(path, extra, {}) == front);
  std::wstring encoded;
  for (const auto& [name, value] : parameters) {
    encoded += wide(name + "=" + value + "&");
  }
  const std::wstring target = request_text::target(path, extra, parameters);
  // The parameters come last, with one mark in front at most: "?" or "&", whichever is missing.
  FUZZ_CHECK(target.starts_with(front) && target.ends_with(encoded));
  const std::size_t added = target.size() - front.size() - encoded.size();
  FUZZ_CHECK(added <= (parameters.empty() ? 0U : 1U));
  FUZZ_CHECK(added == 0 || target[front.size()] == (extra.starts_with(L"?") ? L'&' : L'?'));
  const std::wstring_view query = request_text::queryOf(std::wstring_view(target).substr(path.size()));
  FUZZ_CHECK(encoded.find(L'#') != encoded.npos || !extra.starts_with(L"?") || query.ends_with(encoded));
}

}  // namespace

void fuzz::target(std::string_view input) {
  HttpMap texts;
  std::vector<std::string> pieces = fuzz::split(input, '|');
  pieces.resize(std::max<std::size_t>(pieces.size(), 2));
  for (std::size_t i = 2; i + 1 < pieces.size(); i += 2) {
    texts[pieces[i]] = pieces[i + 1];
  }
  if (CORE::toUtf8Lossy(CORE::toWideLossy(input)) == input) {  // else it is no UTF-8
    checkHeaders(texts);
    checkTarget(wide(pieces[0]), wide(pieces[1]), texts);
  }
}
