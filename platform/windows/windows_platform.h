#pragma once

#include "platform/platform.h"

namespace platform {

/// Returns the real Windows, in which each operation is the platform call of its name. The first call makes the
/// services. They are never destroyed, so that worker threads may use them until the process ends. Any thread.
const Platform& windowsPlatform();

}  // namespace platform
