#pragma once

#include <string_view>

namespace CORE {

/// Whether an entry of a bag with that name holds a secret: the name equals one of a fixed list, in any case (user's
/// default locale). A longer or shorter name is another name.
bool isSensitiveName(std::wstring_view name);

}  // namespace CORE
