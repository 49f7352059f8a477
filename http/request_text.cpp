#include "http/request_text.h"

#include "core/format/format.h"
#include "core/text/convert.h"

namespace request_text {
namespace {

bool breaksLine(std::string_view text) { return text.find_first_of(std::string_view("\r\n\0", 3)) != text.npos; }

}  // namespace

bool headerBlock(const HttpMap& headers, std::wstring& block) {
  std::string lines;
  block.clear();
  for (const auto& [name, value] : headers) {
    if (breaksLine(name) || breaksLine(value)) {
      return false;
    }
    if (!lines.empty()) {
      lines += "\r\n";
    }
    lines += name;
    lines += ':';
    lines += value;
  }
  block = CORE::to_wstr(lines, CORE::kUtf8);
  return true;
}

std::wstring target(std::wstring_view path, std::wstring_view extra, const HttpMap& parameters) {
  extra = extra.substr(0, extra.find(L'#'));  // WinHTTP would escape a fragment and send it
  std::wstring out(path);
  out += extra;
  std::string encoded;
  for (const auto& [name, value] : parameters) {
    encoded += CORE::formatNarrow("%s=%s&", name, value);  // kept: the last parameter too ends in "&"
  }
  if (!encoded.empty()) {
    if (extra.empty() || extra.front() != L'?') {
      out += L'?';
    } else if (out.back() != L'?' && out.back() != L'&') {
      out += L'&';
    }
    out += CORE::to_wstr(encoded, CORE::kUtf8);
  }
  return out;
}

std::wstring_view queryOf(std::wstring_view extra) {
  extra = extra.substr(0, extra.find(L'#'));
  return extra.empty() ? extra : extra.substr(1);
}

}  // namespace request_text
