#pragma once

#include <string>
#include <string_view>

#include "platform/result.h"

namespace CORE {

/// Returns the path of the folder one level up, from the text alone: the path without its last component and the
/// separators before it. A root keeps its own separator, so the parent of "C:\a" is "C:\". A root ("C:\", "\",
/// "\\server\share") is its own parent; the parent of a single name is the empty path. Both "\" and "/" separate.
std::wstring_view parentPath(std::wstring_view path);

/// Makes sure that a folder exists, and creates the missing levels from the top down with the access that they inherit.
/// (core/files/protected_folder.h makes a folder that ordinary users cannot open.) Whatever exists under that name
/// counts as the folder.
/// \return the error of the level that cannot be created, also when somebody else creates it at the same moment;
///         platform::kErrorPathNotFound for the empty path and for a path of more than platform::kMaxPathCharacters.
platform::Status ensureFolder(std::wstring_view path);

}  // namespace CORE
