#include "core/settings/environment.h"

#include "platform/platform.h"
#include "platform/text.h"

namespace CORE {
namespace {

// The environment may change between the call that asks for the size and the call that expands.
constexpr int kMaxAttempts = 4;

}  // namespace

std::optional<std::wstring> expandEnvironment(const std::wstring& text) {
  platform::Text& service = platform::current().text;
  auto needed = service.ExpandEnvironmentStringsW(text, {});
  std::wstring buffer;
  for (int attempt = 0; attempt < kMaxAttempts && needed && needed.value != 0; ++attempt) {
    buffer.assign(needed.value, L'\0');
    needed = service.ExpandEnvironmentStringsW(text, buffer);
    if (needed && needed.value != 0 && needed.value <= buffer.size()) {
      buffer.resize(needed.value - 1);  // the platform counts the terminator
      return buffer;
    }
  }
  return std::nullopt;
}

}  // namespace CORE
