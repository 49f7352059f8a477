#pragma once

#include <optional>
#include <string>

namespace CORE {

/// The text with its %NAME% parts replaced; a name that is not set stays as it is. Nothing when the platform fails to
/// expand. Any thread. Source: ExpandEnvironmentStringsW.
std::optional<std::wstring> expandEnvironment(const std::wstring& text);

}  // namespace CORE
