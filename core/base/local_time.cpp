#include "core/base/local_time.h"

#include "platform/platform.h"

namespace CORE {

std::optional<platform::SystemTime> localTimeOf(platform::FileTime utc) {
  platform::Clock& clock = platform::current().clock;
  const auto local = clock.FileTimeToLocalFileTime(utc);
  if (!local) {
    return std::nullopt;
  }
  const auto fields = clock.FileTimeToSystemTime(local.value);
  return fields ? std::optional(fields.value) : std::nullopt;
}

platform::SystemTime localTimeNow() {
  platform::Clock& clock = platform::current().clock;
  const auto local = localTimeOf(clock.GetSystemTimeAsFileTime());
  return local ? *local : clock.GetSystemTime();
}

}  // namespace CORE
