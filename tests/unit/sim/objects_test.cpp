#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/sim/windows.h"

namespace {

using platform::current;
using platform::kInfinite;
using platform::kWaitObject0;
using platform::kWaitTimeout;
using std::chrono::milliseconds;

std::uint32_t waitFor(platform::NativeHandle handle, std::uint32_t limit) {
  return current().objects.WaitForSingleObject(handle, limit).value;
}

TEST(SimWaits, EventsFollowTheirResetMode) {
  sim::Windows windows;
  const auto manual = current().objects.CreateEventW(true, true);
  const auto automatic = current().objects.CreateEventW(false, true);
  EXPECT_EQ(waitFor(manual.value.get(), 0), kWaitObject0);
  EXPECT_EQ(waitFor(manual.value.get(), 0), kWaitObject0);
  EXPECT_EQ(waitFor(automatic.value.get(), 0), kWaitObject0);
  EXPECT_EQ(waitFor(automatic.value.get(), 0), kWaitTimeout);
  const platform::NativeHandle both[] = {automatic.value.get(), manual.value.get()};
  EXPECT_EQ(current().objects.WaitForMultipleObjects(both, false, kInfinite).value, kWaitObject0 + 1);
  EXPECT_EQ(current().objects.WaitForMultipleObjects(both, true, 0).value, kWaitTimeout);
}

TEST(SimWaits, ALimitCostsSimulatedTimeOnly) {
  sim::Windows windows;
  const auto event = current().objects.CreateEventW(true, false);
  const auto before = windows.clock.GetSystemTimeAsFileTime();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(waitFor(event.value.get(), 150000), kWaitTimeout);
  EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(5000));
  EXPECT_EQ(windows.clock.GetSystemTimeAsFileTime() - before, 150000u * 10000u);
}

TEST(SimWaits, TheShorterOfTwoLimitsEndsFirst) {
  sim::Windows windows;
  windows.kernel.grace = milliseconds(100);
  const auto event = current().objects.CreateEventW(true, false);
  const auto before = windows.clock.GetSystemTimeAsFileTime();
  platform::FileTime longEnd = 0;
  std::thread longer([&] {
    EXPECT_EQ(waitFor(event.value.get(), 60000), kWaitTimeout);
    longEnd = windows.clock.GetSystemTimeAsFileTime();
  });
  while (windows.faults.callCount("WaitForSingleObject") == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(waitFor(event.value.get(), 10000), kWaitTimeout);
  EXPECT_EQ(windows.clock.GetSystemTimeAsFileTime() - before, 10000u * 10000u);
  longer.join();
  EXPECT_GE(longEnd - before, 60000u * 10000u);
}

TEST(SimWaits, EndWithASignalFromAnotherThreadOrTheClock) {
  sim::Windows windows;
  windows.kernel.grace = milliseconds(5000);
  const auto event = current().objects.CreateEventW(false, false);
  std::thread setter([&] { current().objects.SetEvent(event.value.get()); });
  EXPECT_EQ(waitFor(event.value.get(), 100), kWaitObject0);
  setter.join();
  std::thread mover([&] {
    for (int i = 0; i < 60; ++i) {
      windows.clock.advance(10);
      std::this_thread::sleep_for(milliseconds(1));
    }
  });
  EXPECT_EQ(waitFor(event.value.get(), 500), kWaitTimeout);
  mover.join();
}

TEST(SimWaitsDeathTest, AWaitThatNothingEndsNamesItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        sim::Windows windows;
        windows.kernel.hangLimit = milliseconds(50);
        const auto event = current().objects.CreateEventW(true, false);
        waitFor(event.value.get(), kInfinite);
      },
      "WaitForSingleObject on event");
}

TEST(SimMutex, IsOwnedByItsThreadAndKnownByName) {
  sim::Windows windows;
  windows.objects.addMutex(L"Global\\taken");
  const auto taken = current().objects.CreateMutexW(true, L"Global\\taken");
  EXPECT_TRUE(taken.ok);
  EXPECT_EQ(taken.error, platform::kErrorAlreadyExists);
  EXPECT_FALSE(windows.objects.mutexHeld(L"Global\\taken"));
  EXPECT_FALSE(current().objects.ReleaseMutex(taken.value.get()).ok);

  auto mine = current().objects.CreateMutexW(true, L"Global\\mine");
  EXPECT_EQ(mine.error, 0u);
  EXPECT_TRUE(windows.objects.mutexHeld(L"Global\\mine"));
  std::thread other([&] { EXPECT_EQ(waitFor(mine.value.get(), 1), kWaitTimeout); });
  other.join();
  EXPECT_TRUE(current().objects.ReleaseMutex(mine.value.get()).ok);
  EXPECT_FALSE(windows.objects.mutexHeld(L"Global\\mine"));
  mine.value.reset();
  EXPECT_FALSE(windows.objects.mutexExists(L"Global\\mine"));
}

}  // namespace
