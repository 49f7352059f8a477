#pragma once

#include <string>

#include "platform/result.h"

namespace CORE {

/// Makes a folder to which only the system and administrators have access, and everything that will be in it. Missing
/// folders above it get the access that they inherit, as those of core/files/ensure_folder.h do. Any thread.
/// \return success also when the folder exists already; its access then stays as it is.
platform::Status makeProtectedFolder(const std::wstring& path);

}  // namespace CORE
