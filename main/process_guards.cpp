#include "main/process_guards.h"

#include <array>
#include <span>
#include <system_error>
#include <vector>

#include "core/error_text.h"
#include "core/exception.h"
#include "core/log.h"
#include "platform/files.h"
#include "platform/objects.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/security.h"

namespace {

constexpr const wchar_t* kMutexName = L"Global\\meridon_lumen_dct_mutex";

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

DCTMutex::~DCTMutex() {
  if (mutex_) {
    platform::current().objects.ReleaseMutex(mutex_.get());
  }
}

bool DCTMutex::GetMutex() {
  auto created = platform::current().objects.CreateMutexW(true, kMutexName);
  if (created.error == platform::kErrorAlreadyExists) {
    CORE::log(CORE::kError, L"DCTMutex::GetMutex(): Mutex already exists");
    // kept: the handle is dropped, not closed. It lives until the process ends, which is about to happen.
    (void)created.value.release();
    return false;
  }
  if (!created) {
    CORE::log(CORE::kError, L"DCTMutex::GetMutex(): CreateMutex failed: %s", CORE::systemErrorText(created.error));
    return false;
  }
  mutex_ = std::move(created.value);
  return true;
}

DCTDeleter::~DCTDeleter() {
  try {
    removeBundle();
  } catch (...) {
    CORE::log(CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle.");
  }
}

void DCTDeleter::removeBundle() const {
  if (path_.empty()) {
    return;
  }
  std::error_code error;
  const bool removed = platform::current().files.remove(path_, error);
  if (!removed && CORE::logAdmits(CORE::kWarn)) {
    CORE::log(CORE::kWarn, L"DCTDeleter::~DCTDeleter(): Unable to clean DCT bundle. Error code: %d. Error msg: %s",
              error.value(), CORE::systemErrorText(static_cast<std::uint32_t>(error.value())));
  }
}
