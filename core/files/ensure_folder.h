#pragma once

#include <string>
#include <string_view>

namespace CORE {

/// The path one level up, by text alone: without the last component and the separators round it, but with a root's own
/// separator ("C:\a" gives "C:\"). A root ("C:\", "\", "\\server\share") and a single name give themselves and the
/// empty path. Both "\" and "/" separate.
std::wstring_view parentPath(std::wstring_view path);

/// Makes sure that a folder exists: creates the missing levels from the top down. Something of that name that exists
/// counts as the folder. False when a level cannot be created, which includes one that somebody else has created in
/// between, and for the empty path and paths that no file system takes (more than 32767 characters).
bool ensureFolder(std::wstring_view path);

}  // namespace CORE
