#include <windows.h>

#include <array>
#include <thread>

#include "platform/objects.h"
#include "platform/platform.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

platform::Objects& objects_() { return platform::current().objects; }

void events() {
  const auto manual = objects_().CreateEventW(true, false);
  that(manual.ok && objects_().WaitForSingleObject(manual.value.get(), 0).value == platform::kWaitTimeout,
       "objects: a new event is not signalled");
  that(objects_().SetEvent(manual.value.get()).ok, "objects: it is set");
  that(objects_().WaitForSingleObject(manual.value.get(), 0).value == platform::kWaitObject0 &&
           objects_().WaitForSingleObject(manual.value.get(), 0).value == platform::kWaitObject0,
       "objects: a manual-reset event stays signalled");

  const auto automatic = objects_().CreateEventW(false, true);
  that(objects_().WaitForSingleObject(automatic.value.get(), 0).value == platform::kWaitObject0 &&
           objects_().WaitForSingleObject(automatic.value.get(), 0).value == platform::kWaitTimeout,
       "objects: an auto-reset event wakes one");

  const std::array<platform::NativeHandle, 2> both = {automatic.value.get(), manual.value.get()};
  equal(objects_().WaitForMultipleObjects(both, false, 0).value, platform::kWaitObject0 + 1,
        "objects: a wait for one of two names the signalled one");
  equal(objects_().WaitForMultipleObjects(both, true, 0).value, platform::kWaitTimeout,
        "objects: a wait for both times out");

  const auto failed = objects_().WaitForSingleObject(nullptr, 0);
  that(!failed.ok && failed.value == platform::kWaitFailed && failed.error == platform::kErrorInvalidHandle,
       "objects: a wait for nothing fails with its error");
  that(!objects_().SetEvent(nullptr).ok, "objects: setting nothing fails");
}

void wakingAnotherThread() {
  const auto event = objects_().CreateEventW(true, false);
  std::thread setter([&event] { objects_().SetEvent(event.value.get()); });
  equal(objects_().WaitForSingleObject(event.value.get(), 5000).value, platform::kWaitObject0,
        "objects: another thread wakes the waiter");
  setter.join();
}

void mutexes() {
  const std::wstring name = L"Global\\mddct_platform_check";
  const auto first = objects_().CreateMutexW(true, name);
  that(first.ok && first.error == platform::kErrorSuccess, "objects: a new mutex comes without error");
  {
    const auto second = objects_().CreateMutexW(true, name);
    that(second.ok && second.error == platform::kErrorAlreadyExists, "objects: an existing mutex comes with 183");
  }
  platform::Status released;
  std::thread stranger([&] { released = objects_().ReleaseMutex(first.value.get()); });
  stranger.join();
  that(!released.ok, "objects: only the owner releases a mutex");
  that(objects_().ReleaseMutex(first.value.get()).ok, "objects: the owner does");
}

void inheritance() {
  const auto event = objects_().CreateEventW(true, false);
  DWORD flags = HANDLE_FLAG_INHERIT;
  ::GetHandleInformation(event.value.get(), &flags);
  that((flags & HANDLE_FLAG_INHERIT) == 0, "objects: an event is not inheritable");
  objects_().SetHandleInformation(event.value.get(), platform::kHandleFlagInherit, platform::kHandleFlagInherit);
  ::GetHandleInformation(event.value.get(), &flags);
  that((flags & HANDLE_FLAG_INHERIT) != 0, "objects: until it is made so");
}

}  // namespace

void objects() {
  events();
  wakingAnotherThread();
  mutexes();
  that(objects_().CreateMutexW(true, L"Global\\mddct_platform_check").error == platform::kErrorSuccess,
       "objects: a closed mutex leaves its name");
  inheritance();
}

}  // namespace check
