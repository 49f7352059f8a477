#include "core/text/path_text.h"

namespace CORE {

std::wstring_view withoutTrailingSeparators(std::wstring_view path) {
  return path.substr(0, path.find_last_not_of(L"\\/") + 1);
}

}  // namespace CORE
