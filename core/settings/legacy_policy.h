#pragma once

#include <string>
#include <string_view>

namespace CORE {

/// Returns the key path of the former maker's policy for a key path of the product. Both are without a root: for
/// "Software\Calvera\Meridon\Log\Sub" it is "Software\Policies\Vantix, Inc.\Vantix VDX\Log\Sub". Any thread.
/// \return the empty text for a key path outside the product's key, and for a component that had no policies.
std::wstring legacyPolicyPath(std::wstring_view keyPath);

}  // namespace CORE
