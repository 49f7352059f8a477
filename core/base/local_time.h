#pragma once

#include <optional>

#include "platform/clock.h"

namespace CORE {

/// Converts a time to local time, with the time zone's present offset. Returns nothing when the platform cannot convert
/// it. Any thread.
std::optional<platform::SystemTime> localTimeOf(platform::FileTime utc);

/// Returns the present local time, or the present UTC when the platform cannot convert it. Any thread.
platform::SystemTime localTimeNow();

}  // namespace CORE
