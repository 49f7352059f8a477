#include "main/collection_mutex.h"

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/objects.h"
#include "platform/platform.h"

namespace {

constexpr const wchar_t* kMutexName = L"Global\\meridon_lumen_dct_mutex";

}  // namespace

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
