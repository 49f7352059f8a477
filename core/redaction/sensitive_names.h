#pragma once

#include <string_view>

namespace CORE {

/// Whether an entry of a bag with that name holds a secret. The whole name has to equal one of a fixed list, in any
/// case (user's default locale).
bool isSensitiveName(std::wstring_view name);

}  // namespace CORE
