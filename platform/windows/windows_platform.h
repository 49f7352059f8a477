#pragma once

#include "platform/platform.h"

namespace platform {

/// The real Windows, each operation the platform call of its name. The services are made at the first call and never
/// destroyed, so worker threads may use them until the process is gone. Any thread.
const Platform& windowsPlatform();

}  // namespace platform
