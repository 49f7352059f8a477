#pragma once

#include <string>

namespace CORE {

/// The folder of the product's log files when no other is configured, without a separator at its end:
/// "%ProgramData%\Calvera\Meridon\logs", or "logs" beside the program when ProgramData is not set. Empty when the
/// platform knows neither. The folder need not exist. Any thread.
std::wstring defaultLogFolder();

}  // namespace CORE
