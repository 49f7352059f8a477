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

/// The TokenUser information of a token, first element first; empty (and logged) when it cannot be had. The identifier
/// that it points to lies in the same buffer.
std::vector<platform::TokenUser> readTokenUser(platform::NativeHandle token) {
  auto& security = platform::current().security;
  const auto size = security.GetTokenInformation(token, platform::kTokenUser, {});
  if (size.ok || size.error != platform::kErrorInsufficientBuffer) {
    CORE::log(CORE::kError, L"IsSystemProcess(): GetTokenInformation (size): %s. Return Length: %lu.",
              CORE::systemErrorText(size.error), size.value);
    return {};
  }
  // Whole elements, so that the front is aligned and never shorter than one of them.
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
