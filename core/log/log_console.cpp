#include "core/log/log_console.h"

#include "platform/files.h"
#include "platform/objects.h"
#include "platform/platform.h"
#include "platform/system.h"

namespace CORE {
namespace {

constexpr std::uint32_t kMutexTimeout = 1000;  // milliseconds

}  // namespace

platform::Status LogConsole::open() {
  const platform::Platform& platform = platform::current();
  const platform::Status attached = platform.system.AttachConsole();
  if (!attached && attached.error != platform::kErrorAccessDenied) {  // which means: it has a console already
    return attached;
  }
  auto mutex = platform.objects.CreateMutexW(false, L"Local\\meridon_sysmessage_console");
  if (!mutex) {
    return {false, mutex.error};
  }
  auto console =
      platform.files.CreateFileW(L"CONOUT$", platform::kGenericRead | platform::kGenericWrite, platform::kFileShareAll,
                                 platform::kOpenExisting, platform::kFileAttributeNormal);
  if (!console) {
    return {false, console.error};
  }
  mutex_ = std::move(mutex.value);
  console_ = std::move(console.value);
  return {true, platform::kErrorSuccess};
}

platform::Status LogConsole::write(const std::wstring& lines) {
  const platform::Platform& platform = platform::current();
  const auto waited = platform.objects.WaitForSingleObject(mutex_.get(), kMutexTimeout);
  if (!waited) {
    console_.reset();
    return {false, waited.error};
  }
  if (waited.value != platform::kWaitTimeout) {
    platform.system.WriteConsoleW(console_.get(), lines);
    platform.objects.ReleaseMutex(mutex_.get());
  }
  return {true, platform::kErrorSuccess};
}

}  // namespace CORE
