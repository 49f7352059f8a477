#include <windows.h>

#include <array>
#include <iostream>

#include "platform/files.h"
#include "platform/objects.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/system.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

constexpr std::uint32_t kPatience = 10000;  // milliseconds

platform::Processes& processes_() { return platform::current().processes; }

std::wstring childLine(const std::wstring& deed) {
  return L"\"" + platform::current().system.GetModuleFileNameW().value + L"\" --child=" + deed;
}

platform::Result<platform::ProcessInformation> startChild(const std::wstring& deed,
                                                          const platform::StandardHandles& to) {
  return processes_().CreateProcessW(childLine(deed), to.output != nullptr, platform::kNormalPriorityClass, L"", to);
}

bool ended(const platform::ProcessInformation& child) {
  return platform::current().objects.WaitForSingleObject(child.process.get(), kPatience).value ==
         platform::kWaitObject0;
}

void commandLines() {
  int count = -1;
  const auto vector = processes_().CommandLineToArgvW(L"mdDCT.exe -url \"https://a/b c\" \"\"", count);
  that(vector.ok && count == 4 && std::wstring(vector.value.get()[2]) == L"https://a/b c" &&
           std::wstring(vector.value.get()[3]).empty(),
       "processes: a command line is split");
  that(processes_().GetCommandLineW() == ::GetCommandLineW() &&
           processes_().GetCurrentProcessId() == ::GetCurrentProcessId() &&
           processes_().GetCurrentThreadId() == ::GetCurrentThreadId(),
       "processes: the process knows itself");
}

void failedStarts() {
  const auto missing = processes_().CreateProcessW(L"no_such_program_here.exe", false, 0, L"", {});
  that(!missing.ok && missing.error == platform::kErrorFileNotFound && !missing.value.process,
       "processes: a missing program does not start");
  const auto folder = processes_().CreateProcessW(childLine(L"exit"), false, 0, L"C:\\no\\such\\folder", {});
  that(!folder.ok && folder.error == ERROR_DIRECTORY, "processes: nor does one in a missing folder");
}

void exitCodes() {
  const auto quick = startChild(L"exit", {});
  that(quick.ok && quick.value.processId != 0 && ended(quick.value), "processes: a child ends");
  equal(processes_().GetExitCodeProcess(quick.value.process.get()).value, 42, "processes: with its exit code");
  const auto slow = startChild(L"sleep", {});
  equal(processes_().GetExitCodeProcess(slow.value.process.get()).value, STILL_ACTIVE,
        "processes: a running child has none yet");
  that(processes_().TerminateProcess(slow.value.process.get(), 200).ok && ended(slow.value),
       "processes: a running child is ended");
  equal(processes_().GetExitCodeProcess(slow.value.process.get()).value, 200, "processes: with the given code");
}

// Reads until the pipe ends; gives the error that ended it.
platform::ErrorCode drain(platform::NativeHandle pipe, std::string& text) {
  std::array<std::byte, 4096> buffer{};
  for (;;) {
    const auto read = platform::current().files.ReadFile(pipe, buffer);
    if (!read.ok) {
      return read.error;
    }
    text.append(reinterpret_cast<const char*>(buffer.data()), read.value);
  }
}

void redirection() {
  auto output = processes_().CreatePipe(true);
  auto input = processes_().CreatePipe(true);
  that(output.ok && input.ok, "processes: pipes are made");
  platform::Objects& objects = platform::current().objects;
  objects.SetHandleInformation(output.value.read.get(), platform::kHandleFlagInherit, 0);
  objects.SetHandleInformation(input.value.write.get(), platform::kHandleFlagInherit, 0);
  const auto empty = processes_().PeekNamedPipe(output.value.read.get());
  that(empty.ok && empty.value == 0, "processes: a fresh pipe holds nothing");

  const auto child = startChild(L"echo", {input.value.read.get(), output.value.write.get()});
  output.value.write.reset();
  input.value.read.reset();
  const std::string_view question = "over the pipe\n";
  platform::current().files.WriteFile(input.value.write.get(), std::as_bytes(std::span(question)));
  input.value.write.reset();
  that(child.ok && ended(child.value), "processes: the redirected child ends");
  const auto waiting = processes_().PeekNamedPipe(output.value.read.get());
  that(waiting.ok && waiting.value >= question.size(), "processes: what it wrote is seen without reading");
  std::string answer;
  equal(drain(output.value.read.get(), answer), platform::kErrorBrokenPipe, "processes: the pipe ends as broken");
  that(answer.starts_with("heard: over the pipe") && answer.find("stderr 0") != std::string::npos,
       "processes: the child read, answered and has no standard error");
  equal(processes_().PeekNamedPipe(output.value.read.get()).error, platform::kErrorBrokenPipe,
        "processes: a drained pipe without writer says so");
  DWORD flags = HANDLE_FLAG_INHERIT;
  const auto plain = processes_().CreatePipe(false);
  ::GetHandleInformation(plain.value.write.get(), &flags);
  that((flags & HANDLE_FLAG_INHERIT) == 0, "processes: pipes are inheritable only when asked");
}

// The child and its own child hold the pipe's write end: it breaks only when both are gone.
void jobs() {
  auto output = processes_().CreatePipe(true);
  platform::current().objects.SetHandleInformation(output.value.read.get(), platform::kHandleFlagInherit, 0);
  const auto job = processes_().CreateJobObjectW();
  auto input = processes_().CreatePipe(true);
  const auto child = startChild(L"parent", {input.value.read.get(), output.value.write.get()});
  output.value.write.reset();
  that(job.ok && processes_().AssignProcessToJobObject(job.value.get(), child.value.process.get()).ok,
       "processes: a child is put into a job");
  const std::string_view go = "go\n";  // the grandchild is started only now, inside the job
  platform::current().files.WriteFile(input.value.write.get(), std::as_bytes(std::span(go)));
  std::array<std::byte, 64> ready{};
  that(platform::current().files.ReadFile(output.value.read.get(), ready).ok, "processes: the grandchild runs");
  that(processes_().TerminateJobObject(job.value.get(), 258).ok && ended(child.value),
       "processes: ending the job ends the child");
  equal(processes_().GetExitCodeProcess(child.value.process.get()).value, 258, "processes: with the job's exit code");
  bool broken = false;
  for (std::uint32_t waited = 0; !broken && waited < kPatience; waited += 20) {
    broken = processes_().PeekNamedPipe(output.value.read.get()).error == platform::kErrorBrokenPipe;
    processes_().Sleep(broken ? 0 : 20);
  }
  that(broken, "processes: and the grandchild");
}

}  // namespace

int runAsChild(const std::wstring& deed) {
  if (deed == L"exit") {
    return 42;
  }
  std::string line;
  if (deed == L"echo") {
    std::getline(std::cin, line);
    std::cout << "heard: " << line << "\nstderr " << (::GetStdHandle(STD_ERROR_HANDLE) == nullptr ? 0 : 1) << '\n';
    return 0;
  }
  if (deed == L"parent") {
    std::getline(std::cin, line);
    const auto grandchild = startChild(L"sleep", {::GetStdHandle(STD_INPUT_HANDLE), ::GetStdHandle(STD_OUTPUT_HANDLE)});
    std::cout << (grandchild.ok ? "ready" : "failed") << std::endl;
  }
  ::Sleep(120000);
  return 0;
}

void processes() {
  commandLines();
  failedStarts();
  exitCodes();
  redirection();
  jobs();
}

}  // namespace check
