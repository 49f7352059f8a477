#pragma once

#include <optional>

#include "platform/clock.h"

namespace CORE {

/// A time in the platform's time zone as it is now; nothing when the platform cannot tell. Any thread.
std::optional<platform::SystemTime> localTimeOf(platform::FileTime utc);

/// The local time now; UTC when the platform cannot tell. Any thread.
platform::SystemTime localTimeNow();

}  // namespace CORE
