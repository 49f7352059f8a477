#include "core/text/convert.h"

#include "core/base/exception.h"
#include "core/base/unicode.h"

namespace CORE {

std::wstring to_wstr(std::string_view text, std::uint32_t codePage) {
  std::wstring out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto c = codePage == kUtf8 ? nextUtf8(text, i) : std::nullopt;
    if (!c) {
      throw coreException(L"to_wstr Failed");
    }
    appendWide(out, *c);
  }
  return out;
}

std::string to_mstr(std::wstring_view text, std::uint32_t codePage) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto c = codePage == kUtf8 ? nextWide(text, i) : std::nullopt;
    if (!c) {
      throw coreException(L"to_mstr Failed");
    }
    appendUtf8(out, *c);
  }
  return out;
}

}  // namespace CORE
