#include <algorithm>

#include "core/convert.h"
#include "core/exception.h"
#include "fuzz/check.h"
#include "fuzz/input.h"
#include "http/request_text.h"

// Path, extra part, then names and values, separated by "|". No header may break out of its line.

namespace {

bool isUtf8(std::string_view text) {
  try {
    return CORE::to_mstr(CORE::to_wstr(text, CORE::kUtf8), CORE::kUtf8) == text;
  } catch (const CORE::coreException&) {
    return false;
  }
}

void checkHeaders(const HttpMap& headers) {
  std::wstring block = L"old";
  bool clean = true;
  std::wstring wanted;
  for (const auto& [name, value] : headers) {
    for (const char c : name + value) {
      clean = clean && c != '\r' && c != '\n' && c != '\0';
    }
    wanted += (wanted.empty() ? L"" : L"\r\n") + CORE::to_wstr(name + ":" + value, CORE::kUtf8);
  }
  FUZZ_CHECK(request_text::headerBlock(headers, block) == clean);
  FUZZ_CHECK(block == (clean ? wanted : L""));
  const auto breaks = [&](wchar_t c) { return std::count(block.begin(), block.end(), c); };
  FUZZ_CHECK(breaks(L'\0') == 0 && breaks(L'\r') == breaks(L'\n'));
  FUZZ_CHECK(block.empty() || static_cast<std::size_t>(breaks(L'\n')) + 1 == headers.size());
}

void checkTarget(const std::wstring& path, const std::wstring& extra, const HttpMap& parameters) {
  const std::wstring plain = request_text::target(path, extra, {});
  FUZZ_CHECK(plain == path + extra);
  std::wstring encoded;
  for (const auto& [name, value] : parameters) {
    encoded += CORE::to_wstr(name + "=" + value + "&", CORE::kUtf8);
  }
  const std::wstring target = request_text::target(path, extra, parameters);
  const std::wstring fragment = extra.substr(std::min(extra.find(L'#'), extra.size()));
  const std::wstring front = path + extra.substr(0, extra.size() - fragment.size());
  // The parameters stand before the fragment, with one mark in front at most: "?" or "&", whichever is missing.
  FUZZ_CHECK(target.starts_with(front) && target.ends_with(encoded + fragment));
  const std::size_t added = target.size() - front.size() - encoded.size() - fragment.size();
  FUZZ_CHECK(added <= (parameters.empty() ? 0U : 1U));
  FUZZ_CHECK(added == 0 || target[front.size()] == (extra.starts_with(L"?") ? L'&' : L'?'));
  const std::wstring_view query = request_text::queryOf(std::wstring_view(target).substr(path.size()));
  FUZZ_CHECK(encoded.find(L'#') != encoded.npos || extra.starts_with(L"?") == false || query.ends_with(encoded));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input = fuzz::bytes(data, size);
  HttpMap texts;
  const std::vector<std::string> pieces = fuzz::split(input, '|');
  for (std::size_t i = 2; i + 1 < pieces.size(); i += 2) {
    texts[pieces[i]] = pieces[i + 1];
  }
  if (isUtf8(input)) {
    checkHeaders(texts);
    checkTarget(CORE::toWideLossy(pieces[0]), pieces.size() > 1 ? CORE::toWideLossy(pieces[1]) : L"", texts);
  }
  return 0;
}
