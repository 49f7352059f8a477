#pragma once

#include <string>

namespace CORE {

/// Returns the folder of the product's log files that is used when no other is configured, without a separator at its
/// end: "%ProgramData%\Calvera\Meridon\logs", or "logs" beside the program when ProgramData is not set. The folder need
/// not exist. Any thread.
/// \return the empty text when the platform knows neither place.
std::wstring defaultLogFolder();

}  // namespace CORE
