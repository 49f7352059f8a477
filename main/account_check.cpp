#include "main/account_check.h"

#include <array>
#include <span>
#include <vector>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/security.h"

namespace {

// The texts name IsSystemProcess, of which this is a step.
/// Reads the TokenUser information of a token, which begins with the first element; the identifier that this element
/// points to lies behind it, in the same buffer. Empty when the information cannot be read, which is logged.
std::vector<platform::TokenUser> readTokenUser(platform::NativeHandle token) {
  auto& security = platform::current().security;
  const auto size = security.GetTokenInformation(token, platform::kTokenUser, {});
  if (size.ok || size.error != platform::kErrorInsufficientBuffer) {
    CORE::log(CORE::kError, L"IsSystemProcess(): GetTokenInformation (size): %s. Return Length: %lu.",
              CORE::systemErrorText(size.error), size.value);
    return {};
  }
  // A vector of whole elements: its start is aligned as an element is, and it is never shorter than one.
  std::vector<platform::TokenUser> buffer(size.value / sizeof(platform::TokenUser) + 1);
  const auto bytes = std::as_writable_bytes(std::span(buffer)).first(size.value);
  const auto read = security.GetTokenInformation(token, platform::kTokenUser, bytes);
  if (!read) {
    CORE::log(CORE::kError, L"IsSystemProcess(): GetTokenInformation: %s. Return Length: %lu.",
              CORE::systemErrorText(read.error), read.value);
    return {};
  }
  return buffer;
}

}  // namespace

bool IsSystemProcess() {
  const platform::Platform& windows = platform::current();
  const auto token = windows.security.OpenProcessToken(windows.processes.GetCurrentProcess(), platform::kTokenQuery);
  if (!token) {
    CORE::log(CORE::kError, L"IsSystemProcess(): OpenProcessToken: %s", CORE::systemErrorText(token.error));
    return false;
  }
  const std::vector<platform::TokenUser> user = readTokenUser(token.value.get());
  if (user.empty()) {
    return false;
  }
  constexpr std::array<std::uint32_t, 1> kSubAuthorities = {platform::kSecurityLocalSystemRid};
  const auto system = windows.security.AllocateAndInitializeSid(platform::kSecurityNtAuthority, kSubAuthorities);
  if (!system) {
    CORE::log(CORE::kError, L"IsSystemProcess(): AllocateAndInitializeSid: %s", CORE::systemErrorText(system.error));
    return false;
  }
  return windows.security.EqualSid(user.front().sid, system.value.get());
}
