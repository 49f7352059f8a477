#pragma once

#include <string>

#include "platform/result.h"

namespace CORE {

/// Makes a folder to which only the system and administrators have access, what will be in it included. Folders above
/// it that are missing are made with the access that they inherit. A folder that is there already stays as it is, and
/// that is success. Any thread.
platform::Status makeProtectedFolder(const std::wstring& path);

}  // namespace CORE
