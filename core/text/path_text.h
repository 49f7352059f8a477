#pragma once

#include <string_view>

namespace CORE {

/// Returns the path without the separators ("\" and "/") at its end. A root loses its own, too: "C:\" becomes "C:".
std::wstring_view withoutTrailingSeparators(std::wstring_view path);

}  // namespace CORE
