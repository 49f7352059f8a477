#include "main/completion_event.h"

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/objects.h"
#include "platform/platform.h"

// The texts name wWinMain, whose event this is.

bool CompletionEvent::open() {
  auto created = platform::current().objects.CreateEventW(true, false);
  if (!created) {
    CORE::log(CORE::kError, L"wWinMain(): CreateEvent failed: %s", CORE::systemErrorText(created.error));
    return false;
  }
  const CORE::MutexLock lock(mutex_);
  event_ = std::move(created.value);
  return true;
}

void CompletionEvent::close() {
  const CORE::MutexLock lock(mutex_);
  event_.reset();
}

void CompletionEvent::report(bool succeeded) {
  succeeded_.exchange(succeeded);
  // The lock is held over SetEvent: the run that it wakes closes the event, and must not do so while the call is still
  // inside. The lock outlives the run, because the completion callback owns this object as well.
  const CORE::MutexLock lock(mutex_);
  for (int attempt = 0; event_ && attempt < kMaxSignalAttempts; ++attempt) {
    const platform::Status signalled = platform::current().objects.SetEvent(event_.get());
    if (signalled) {
      return;
    }
    CORE::log(CORE::kError, L"wWinMain(): SetEvent failed: 0x%x %s", signalled.error,
              CORE::systemErrorText(signalled.error));
  }
}

bool CompletionEvent::wait() const {
  CORE::MutexLock lock(mutex_);
  const platform::NativeHandle event = event_.get();
  lock.unlock();  // report() takes it; the handle stays open, because this thread alone closes it
  const auto waited = platform::current().objects.WaitForSingleObject(event, platform::kInfinite);
  if (!waited || waited.value != platform::kWaitObject0) {
    CORE::log(CORE::kError, L"wWinMain(): WaitForSingleObject failed: %s", CORE::systemErrorText(waited.error));
    return false;
  }
  return true;
}
