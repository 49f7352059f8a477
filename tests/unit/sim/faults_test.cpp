#include <gtest/gtest.h>

#include "tests/sim/windows.h"

namespace {

using platform::current;

TEST(SimFaults, FailTheCallsAskedForAndNoOthers) {
  sim::Windows windows;
  windows.faults.failNth("CreateEventW", 2, 8);
  EXPECT_TRUE(current().objects.CreateEventW(true, false).ok);
  const auto second = current().objects.CreateEventW(true, false);
  EXPECT_FALSE(second.ok);
  EXPECT_EQ(second.error, 8u);
  EXPECT_TRUE(current().objects.CreateEventW(true, false).ok);
  windows.faults.failNth("CreateEventW", 1, 9);  // counted from here
  EXPECT_EQ(current().objects.CreateEventW(true, false).error, 9u);

  windows.faults.failAll("_waccess", 5);
  EXPECT_EQ(current().files._waccess(L"C:\\Windows", 0), -1);
  EXPECT_EQ(current().files._waccess(L"C:\\Windows", 0), -1);
  EXPECT_EQ(windows.faults.callCount("_waccess"), 2u);
  windows.faults.clear();
  EXPECT_EQ(current().files._waccess(L"C:\\Windows", 0), 0);
  EXPECT_EQ(windows.faults.fired(), 4u);
}

TEST(SimFaults, TheKthCallOfTheRunIsMetUnlessItCannotFail) {
  sim::Windows windows;
  windows.faults.failCall(2, 5);
  windows.faults.failCall(3, 5);
  current().clock.GetTickCount();
  EXPECT_FALSE(current().objects.CreateMutexW(true, L"m").ok);
  EXPECT_EQ(current().processes.GetCommandLineW(), L"mdDCT.exe");
  EXPECT_EQ(windows.faults.calls(), (std::vector<std::string>{"GetTickCount", "CreateMutexW", "GetCommandLineW"}));
  EXPECT_EQ(windows.faults.fired(), 1u);
}

TEST(SimFaults, EveryServiceFailsAsItsPlatformDoes) {
  sim::Windows windows;
  windows.files.write(L"C:\\f", "x");
  for (const char* name : {"CompareStringW", "FormatMessageW", "file_size", "remove", "BCryptOpenAlgorithmProvider",
                           "HeapAlloc", "IsValidURL", "WinHttpOpen", "RegOpenKeyExW", "WaitForSingleObject"}) {
    windows.faults.failAll(name, 14);
  }
  std::error_code error;
  platform::AlgorithmProvider provider;
  EXPECT_EQ(current().text.CompareStringW(0, 0, L"a", L"a"), 0);
  EXPECT_EQ(current().text.FormatMessageW(platform::kFormatMessageFromSystem, nullptr, 5, {}).error, 14u);
  EXPECT_EQ(current().files.file_size(L"C:\\f", error), static_cast<std::uintmax_t>(-1));
  EXPECT_EQ(error.value(), 14);
  EXPECT_FALSE(current().files.remove("C:\\f", error));
  EXPECT_EQ(error.value(), 14);
  EXPECT_TRUE(windows.files.exists(L"C:\\f"));
  EXPECT_LT(current().digests.BCryptOpenAlgorithmProvider(provider, L"SHA256", 0), 0);
  EXPECT_EQ(current().heap.HeapAlloc(current().heap.GetProcessHeap(), 1), nullptr);
  EXPECT_NE(current().internet.IsValidURL(L"https://host/"), 0);
  EXPECT_FALSE(current().winHttp.WinHttpOpen(L"a", 1, L"", L"", 0).ok);
  EXPECT_FALSE(current().registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, L"", 1).ok);
  EXPECT_EQ(current().objects.WaitForSingleObject(nullptr, 0).value, platform::kWaitFailed);
}

TEST(SimHandles, AreCountedByKindAndMisuseIsRecorded) {
  sim::Windows windows;
  auto event = current().objects.CreateEventW(true, false);
  auto second = current().objects.CreateEventW(true, false);
  auto session = current().winHttp.WinHttpOpen(L"a", 1, L"", L"", 0);
  int count = 0;
  auto arguments = current().processes.CommandLineToArgvW(L"a b", count);
  EXPECT_EQ(windows.openHandles(), 4u);
  EXPECT_EQ(windows.openHandlesText(), "1 WinHTTP session, 1 argument vector, 2 event");
  EXPECT_TRUE(windows.misuse().empty());

  const platform::NativeHandle closed = event.value.get();
  event.value.reset();
  EXPECT_EQ(current().objects.CloseHandle(closed).error, platform::kErrorInvalidHandle);
  EXPECT_EQ(current().objects.SetEvent(closed).error, platform::kErrorInvalidHandle);
  EXPECT_EQ(current().objects.CloseHandle(session.value.get()).error, platform::kErrorInvalidHandle);
  current().registry.RegCloseKey(&windows);
  const auto misuse = windows.misuse();
  ASSERT_EQ(misuse.size(), 4u);
  EXPECT_NE(misuse[0].find("CloseHandle: handle 0x10004 is closed"), std::string::npos) << misuse[0];
  EXPECT_NE(misuse[1].find("SetEvent"), std::string::npos);
  EXPECT_NE(misuse[2].find("of the kind WinHTTP session"), std::string::npos);
  EXPECT_NE(misuse[3].find("foreign"), std::string::npos);
}

}  // namespace
