#pragma once

#include <optional>
#include <string>

namespace CORE {

/// Returns the text with its %NAME% parts replaced. The name of a variable that is not set stays as it is. Any thread.
/// Source: ExpandEnvironmentStringsW.
/// \return nothing when the platform fails to expand.
std::optional<std::wstring> expandEnvironment(const std::wstring& text);

}  // namespace CORE
