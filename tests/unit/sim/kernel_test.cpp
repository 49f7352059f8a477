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

TEST(SimFaults, FailTheCallsAskedForAndNoOthers) {
  sim::Windows windows;
  const auto create = [] { return current().objects.CreateEventW(true, false).error; };
  windows.faults.failNth("CreateEventW", 2, 8);
  EXPECT_EQ((std::vector{create(), create(), create()}), (std::vector{0u, 8u, 0u}));
  windows.faults.failNth("CreateEventW", 1, 9);  // counted from here
  windows.faults.failCall(8, 5);
  windows.faults.failCall(9, 5);
  EXPECT_EQ(create(), 9u);
  current().processes.GetCommandLineW();
  current().clock.GetTickCount();  // the eighth call cannot fail
  EXPECT_EQ(create(), 5u);
  EXPECT_EQ(windows.faults.calls().at(7), "GetTickCount");
  EXPECT_EQ(windows.faults.callCount("CreateEventW"), 5u);
  windows.faults.failAll("CreateEventW", 7);
  EXPECT_EQ(create() + create(), 14u);
  windows.faults.clear();
  EXPECT_EQ(create(), 0u);
}

TEST(SimHandles, AreCountedByKindAndMisuseIsRecorded) {
  sim::Windows windows;
  auto event = current().objects.CreateEventW(true, false);
  auto second = current().objects.CreateEventW(true, false);
  auto session = current().winHttp.WinHttpOpen(L"a", 1, L"", L"", 0);
  EXPECT_EQ(windows.openHandlesText(), "1 WinHTTP session, 2 event");
  const platform::NativeHandle closed = event.value.get();
  event.value.reset();
  EXPECT_EQ(windows.misuse(), std::vector<std::string>{});
  EXPECT_EQ(current().objects.SetEvent(closed).error, platform::kErrorInvalidHandle);
  EXPECT_FALSE(current().objects.CloseHandle(session.value.get()).ok);
  EXPECT_EQ(windows.misuse(), (std::vector<std::string>{"SetEvent: handle of the kind closed or foreign",
                                                        "CloseHandle: handle of the kind WinHTTP session"}));
}

TEST(SimWaits, ALimitCostsSimulatedTimeOnlyAndTheShorterEndsFirst) {
  sim::Windows windows;
  windows.kernel.grace = milliseconds(100);
  const auto event = current().objects.CreateEventW(true, false);
  const auto before = windows.clock.GetTickCount();
  std::thread longer([&] {
    EXPECT_EQ(waitFor(event.value.get(), 60000), kWaitTimeout);
    EXPECT_GE(windows.clock.GetTickCount() - before, 60000u);
  });
  while (windows.faults.callCount("WaitForSingleObject") == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(waitFor(event.value.get(), 10000), kWaitTimeout);
  EXPECT_EQ(windows.clock.GetTickCount() - before, 10000u);
  longer.join();
}

TEST(SimWaits, FollowTheKindOfTheirObject) {
  sim::Windows windows;
  const auto manual = current().objects.CreateEventW(true, true);
  const auto automatic = current().objects.CreateEventW(false, true);
  EXPECT_EQ(waitFor(automatic.value.get(), 0), kWaitObject0);
  const platform::NativeHandle both[] = {automatic.value.get(), manual.value.get()};
  EXPECT_EQ(current().objects.WaitForMultipleObjects(both, false, kInfinite).value, kWaitObject0 + 1);
  EXPECT_EQ(current().objects.WaitForMultipleObjects(both, true, 0).value, kWaitTimeout);
  std::thread setter([&] { current().objects.SetEvent(automatic.value.get()); });
  EXPECT_EQ(waitFor(automatic.value.get(), kInfinite), kWaitObject0);
  setter.join();
  windows.objects.addMutex(L"taken");
  const auto taken = current().objects.CreateMutexW(true, L"taken");
  EXPECT_EQ(taken.error, platform::kErrorAlreadyExists);
  EXPECT_FALSE(current().objects.ReleaseMutex(taken.value.get()).ok);
  const auto mine = current().objects.CreateMutexW(true, L"mine");
  std::thread([&] { EXPECT_EQ(waitFor(mine.value.get(), 1), kWaitTimeout); }).join();
}

TEST(SimWaitsDeathTest, AWaitThatNothingEndsNamesItself) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  sim::Windows windows;
  windows.kernel.hangLimit = milliseconds(50);
  const auto event = current().objects.CreateEventW(true, false);
  EXPECT_DEATH(waitFor(event.value.get(), kInfinite), "WaitForSingleObject on event");
}

TEST(SimProcesses, AJobEndsAllThatHoldsThePipe) {
  sim::Windows windows;
  windows.processes.onStart([](sim::Child& child) {
    child.readInput();  // until the parent's end of the pipe is closed
    child.spawn([](sim::Child& grandchild) { grandchild.hang(); });
    child.write(std::string(5000, 'x'));  // more than the pipe holds
    child.hang();
  });
  auto& processes = current().processes;
  auto input = std::move(processes.CreatePipe(true).value);
  auto output = std::move(processes.CreatePipe(true).value);
  current().objects.SetHandleInformation(input.write.get(), platform::kHandleFlagInherit, 0);
  const auto child = processes.CreateProcessW(L"c", true, 0, L"C:\\", {input.read.get(), output.write.get()});
  EXPECT_EQ(windows.processes.children().at(0).inheritedCount, 3u);
  EXPECT_FALSE(windows.processes.children().at(0).inheritsOnlyStandardHandles);
  output.write.reset();
  const auto job = processes.CreateJobObjectW();
  EXPECT_TRUE(processes.AssignProcessToJobObject(job.value.get(), child.value.process.get()).ok);
  input.write.reset();
  std::vector<std::byte> buffer(5000);
  EXPECT_LE(current().files.ReadFile(output.read.get(), buffer).value, 4096u);
  const auto before = windows.clock.GetTickCount();
  processes.Sleep(10);
  EXPECT_EQ(windows.clock.GetTickCount() - before, 10u);
  EXPECT_EQ(windows.processes.running(), 2u);
  EXPECT_TRUE(processes.TerminateJobObject(job.value.get(), 77).ok);
  EXPECT_EQ(windows.processes.running(), 0u);
  EXPECT_EQ(windows.processes.children().at(1).ending, sim::Ending::kJobTerminated);
  while (current().files.ReadFile(output.read.get(), buffer).ok) {
  }
  EXPECT_EQ(processes.PeekNamedPipe(output.read.get()).error, platform::kErrorBrokenPipe);
}

}  // namespace
