#pragma once

#include <string>

#include "platform/result.h"

namespace CORE {

/// The folder of the product's log files when no other is configured, without a separator at its end:
/// "%ProgramData%\Calvera\Meridon\logs", or "logs" beside the program when ProgramData is not set. Empty when the
/// platform knows neither. The folder need not exist. Any thread.
std::wstring defaultLogFolder();

/// Makes a folder to which only the system and administrators have access, what will be in it included. Folders above
/// it that are missing are made with the access that they inherit. A folder that is there already stays as it is, and
/// that is success. Any thread.
platform::Status makeProtectedFolder(const std::wstring& path);

}  // namespace CORE
