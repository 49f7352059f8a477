#include "main/completion_event.h"

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/objects.h"
#include "platform/platform.h"

namespace {

constexpr int kSignalAttempts = 3;

}  // namespace

bool CompletionEvent::open() {
  auto created = platform::current().objects.CreateEventW(true, false);
  if (!created) {
    CORE::log(CORE::kError, L"wWinMain(): CreateEvent failed: %s", CORE::systemErrorText(created.error));
    return false;
  }
  event_ = std::move(created.value);
  return true;
}

void CompletionEvent::close() {
  const std::lock_guard lock(mutex_);
  event_.reset();
}

void CompletionEvent::report(bool succeeded) {
  succeeded_.exchange(succeeded);
  // Held across the signal, so that the run which it wakes closes the event behind the call, never inside it. The
  // callback's own share keeps the lock alive.
  const std::lock_guard lock(mutex_);
  // A run that is never woken would keep the machine's mutex for ever, so a refused signal is tried again.
  for (int attempt = 0; event_ && attempt < kSignalAttempts; ++attempt) {
    const platform::Status signalled = platform::current().objects.SetEvent(event_.get());
    if (signalled) {
      return;
    }
    CORE::log(CORE::kError, L"wWinMain(): SetEvent failed: %s", CORE::systemErrorText(signalled.error));
  }
}

bool CompletionEvent::wait() const {
  const auto waited = platform::current().objects.WaitForSingleObject(event_.get(), platform::kInfinite);
  if (!waited || waited.value != platform::kWaitObject0) {
    CORE::log(CORE::kError, L"wWinMain(): WaitForSingleObject failed: %s", CORE::systemErrorText(waited.error));
    return false;
  }
  return true;
}
