#include <gtest/gtest.h>

#include "tests/sim/windows.h"

namespace {

using platform::current;
using platform::kInfinite;

struct Started {
  platform::KernelHandle read;
  platform::ProcessInformation process;
};

/// Starts a child whose standard output comes back through a pipe.
Started startWithPipe() {
  auto& processes = current().processes;
  auto input = std::move(processes.CreatePipe(true).value);
  auto output = std::move(processes.CreatePipe(true).value);
  current().objects.SetHandleInformation(input.write.get(), platform::kHandleFlagInherit, 0);
  current().objects.SetHandleInformation(output.read.get(), platform::kHandleFlagInherit, 0);
  Started started;
  started.process = std::move(
      processes.CreateProcessW(L"child.exe -x \"a b\"", true, 0x20, L"C:\\dct", {input.read.get(), output.write.get()})
          .value);
  started.read = std::move(output.read);
  return started;
}

std::string readAll(platform::NativeHandle pipe) {
  std::string text;
  std::byte buffer[1000];
  for (auto got = current().files.ReadFile(pipe, buffer); got; got = current().files.ReadFile(pipe, buffer)) {
    text.append(reinterpret_cast<const char*>(buffer), got.value);
  }
  return text;
}

TEST(SimProcesses, AChildIsReadWaitedForAndRecorded) {
  for (const bool inlined : {false, true}) {
    sim::Windows windows;
    windows.processes.inlineChildren = inlined;
    windows.processes.onStart([&](sim::Child& child) {
      EXPECT_EQ(child.argumentAfter(L"-x"), L"a b");
      EXPECT_EQ(child.readInput(), "");
      EXPECT_TRUE(child.write(std::string(20000, 'z')));  // more than the pipe holds
      windows.files.write(L"C:\\out.zip", "zip");
      child.exit(7);
    });
    {
      const Started child = startWithPipe();
      EXPECT_EQ(readAll(child.read.get()).size(), 20000u);
      current().objects.WaitForSingleObject(child.process.process.get(), kInfinite);
      EXPECT_EQ(current().processes.GetExitCodeProcess(child.process.process.get()).value, 7u);
      EXPECT_FALSE(current().processes.TerminateProcess(child.process.process.get(), 1).ok);
    }
    EXPECT_EQ(windows.files.read(L"c:\\OUT.zip"), "zip");
    const auto record = windows.processes.children().at(0);
    EXPECT_EQ(record.commandLine, L"child.exe -x \"a b\"");
    EXPECT_EQ(record.folder, L"C:\\dct");
    EXPECT_EQ(record.flags, 0x20u);
    EXPECT_EQ(record.inheritedCount, 2u);
    EXPECT_TRUE(record.inheritsOnlyStandardHandles);
    EXPECT_EQ(record.ending, sim::Ending::kExited);
    EXPECT_EQ(windows.openHandlesText(), "");
  }
}

TEST(SimProcesses, AnyInheritableHandleComesOver) {
  sim::Windows windows;
  const auto extra = current().processes.CreatePipe(true);
  const Started child = startWithPipe();
  EXPECT_EQ(windows.processes.children().at(0).inheritedCount, 4u);
  EXPECT_FALSE(windows.processes.children().at(0).inheritsOnlyStandardHandles);
}

TEST(SimProcesses, AGrandchildKeepsThePipeUntilTheJobEnds) {
  sim::Windows windows;
  windows.processes.onStart([](sim::Child& child) {
    child.spawn([](sim::Child& grandchild) { grandchild.hang(); });
    child.write("answer");
    child.spawn([](sim::Child& grandchild) { grandchild.hang(); }, false);
    child.hang();
  });
  const Started child = startWithPipe();
  const auto job = current().processes.CreateJobObjectW();
  std::byte buffer[100];
  EXPECT_EQ(current().files.ReadFile(child.read.get(), buffer).value, 6u);
  // The second grandchild may have been started before or after this; the first one certainly was before.
  current().processes.TerminateProcess(child.process.process.get(), 9);
  current().objects.WaitForSingleObject(child.process.process.get(), kInfinite);
  const auto peeked = current().processes.PeekNamedPipe(child.read.get());
  EXPECT_TRUE(peeked.ok) << "the grandchild still holds the pipe";
  EXPECT_EQ(peeked.value, 0u);
  EXPECT_GE(windows.processes.running(), 1u);
  EXPECT_FALSE(current().processes.AssignProcessToJobObject(job.value.get(), child.process.process.get()).ok);
}

TEST(SimProcesses, AJobEndsAllThatItHolds) {
  sim::Windows windows;
  windows.processes.onStart([](sim::Child& child) {
    child.readInput();  // until the parent's end of the pipe is closed
    child.spawn([](sim::Child& grandchild) { grandchild.hang(); });
    child.write("x");
    child.hang();
  });
  auto input = std::move(current().processes.CreatePipe(true).value);
  auto output = std::move(current().processes.CreatePipe(true).value);
  current().objects.SetHandleInformation(input.write.get(), platform::kHandleFlagInherit, 0);
  const auto child = current().processes.CreateProcessW(L"c", true, 0, L"C:\\", {input.read.get(), output.write.get()});
  output.write.reset();
  const auto job = current().processes.CreateJobObjectW();
  EXPECT_TRUE(current().processes.AssignProcessToJobObject(job.value.get(), child.value.process.get()).ok);
  input.write.reset();
  std::byte buffer[10];
  EXPECT_EQ(current().files.ReadFile(output.read.get(), buffer).value, 1u);
  EXPECT_EQ(windows.processes.running(), 2u);
  EXPECT_TRUE(current().processes.TerminateJobObject(job.value.get(), 77).ok);
  EXPECT_EQ(windows.processes.running(), 0u);
  EXPECT_EQ(current().files.ReadFile(output.read.get(), buffer).error, platform::kErrorBrokenPipe);
  EXPECT_EQ(windows.processes.children().at(1).ending, sim::Ending::kJobTerminated);
  EXPECT_EQ(windows.processes.children().at(1).parentId, windows.processes.children().at(0).id);
}

TEST(SimProcesses, SleepingMovesTheClockOnceNobodyIsBusy) {
  sim::Windows windows;
  windows.processes.onStart([](sim::Child& child) { child.hang(); });
  const Started child = startWithPipe();
  const auto before = windows.clock.GetTickCount();
  for (int i = 0; i < 1000; ++i) {
    current().processes.Sleep(10);
  }
  EXPECT_EQ(windows.clock.GetTickCount() - before, 10000u);
}

TEST(SimProcesses, CommandLinesSplitAsWindowsDoes) {
  using Texts = std::vector<std::wstring>;
  const std::vector<std::pair<std::wstring, Texts>> rows = {
      {L"", {L"P"}},
      {L"\"C:\\a b\\p.exe\" -url https://h/?a=b&c", {L"C:\\a b\\p.exe", L"-url", L"https://h/?a=b&c"}},
      {L"p \"a b\"c d", {L"p", L"a bc", L"d"}},
      {L"p a\\\\b c\\\\\"d e\"", {L"p", L"a\\\\b", L"c\\d e"}},
      {L"p a\\\"b \"\" x", {L"p", L"a\"b", L"", L"x"}},
      {L"p \"a\"\"b c\" d", {L"p", L"a\"b", L"c d"}},
      {L" p  ", {L"", L"p"}},
  };
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(sim::splitCommandLine(text, L"P"), expected) << testing::PrintToString(text);
  }
}

}  // namespace
