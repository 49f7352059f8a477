#pragma once

#include <string>
#include <string_view>

namespace CORE {

/// The former maker's policy key path for a key path of the product (both without root), as in
/// "Software\Calvera\Meridon\Log\Sub" and "Software\Policies\Vantix, Inc.\Vantix VDX\Log\Sub"; empty when there is
/// none. Any thread.
std::wstring legacyPolicyPath(std::wstring_view keyPath);

}  // namespace CORE
