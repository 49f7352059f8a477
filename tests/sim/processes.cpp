#include "tests/sim/processes.h"

#include <algorithm>
#include <cstdint>

#include "tests/sim/child_state.h"

namespace sim {

struct ArgumentMemory : Object {
  const char* kind() const override { return "argument vector"; }
  std::vector<std::wstring> texts;
  std::unique_ptr<wchar_t*[]> pointers;
};

namespace {

std::shared_ptr<ArgumentMemory> makeArguments(std::vector<std::wstring> texts) {
  auto memory = std::make_shared<ArgumentMemory>();
  memory->texts = std::move(texts);
  memory->pointers = std::make_unique<wchar_t*[]>(memory->texts.size() + 1);
  std::transform(memory->texts.begin(), memory->texts.end(), memory->pointers.get(),
                 [](std::wstring& text) { return text.data(); });
  return memory;
}

}  // namespace

std::wstring Processes::GetCommandLineW() {
  kernel_.faults.note("GetCommandLineW");
  return commandLine;
}

platform::Result<platform::ArgumentVector> Processes::CommandLineToArgvW(const std::wstring& text, int& count) {
  count = 0;
  if (const auto error = kernel_.faults.pass("CommandLineToArgvW")) {
    return {false, {}, *error};
  }
  auto memory = makeArguments(splitCommandLine(text, programPath));
  wchar_t** const vector = memory->pointers.get();
  count = static_cast<int>(memory->texts.size());
  const Guard guard(kernel_.mutex);
  kernel_.add(std::move(memory), vector);
  return {true, platform::ArgumentVector(vector), 0};
}

void Processes::LocalFree(wchar_t** arguments) {
  kernel_.faults.note("LocalFree");
  const Guard guard(kernel_.mutex);
  kernel_.take<ArgumentMemory>(arguments, "LocalFree");
}

platform::NativeHandle Processes::GetCurrentProcess() {
  kernel_.faults.note("GetCurrentProcess");
  return platform::invalidHandleValue();
}

std::uint32_t Processes::GetCurrentProcessId() {
  kernel_.faults.note("GetCurrentProcessId");
  return processId;
}

std::uint32_t Processes::GetCurrentThreadId() {
  kernel_.faults.note("GetCurrentThreadId");
  return currentThreadNumber();
}

platform::Result<platform::ProcessInformation> Processes::CreateProcessW(
    const std::wstring& childCommandLine, bool inheritHandles, std::uint32_t creationFlags,
    const std::wstring& currentDirectory, const platform::StandardHandles& standardHandles) {
  if (const auto error = kernel_.faults.pass("CreateProcessW")) {
    return {false, {}, *error};
  }
  Guard guard(kernel_.mutex);
  const auto state = addChild(processId, childCommandLine, currentDirectory);
  state->record.flags = creationFlags;
  state->record.inheritHandles = inheritHandles;
  inherit(*state, standardHandles);
  platform::ProcessInformation information;
  information.process = platform::KernelHandle(kernel_.add(std::make_shared<ProcessObject>(state)));
  information.thread = platform::KernelHandle(kernel_.add(std::make_shared<ThreadObject>(state)));
  information.processId = state->record.id;
  information.threadId = state->record.id + 1;
  const auto script = script_;
  if (inlineChildren) {
    guard.unlock();
    run(state, script);
  } else {
    kernel_.startThread([this, state, script] { run(state, script); });
  }
  return {true, std::move(information), 0};
}

void Processes::inherit(ChildState& state, const platform::StandardHandles& standardHandles) {
  state.record.standardInput = standardHandles.input;
  state.record.standardOutput = standardHandles.output;
  for (const auto handle : {standardHandles.input, standardHandles.output}) {
    if (handle != nullptr && kernel_.find(handle) == nullptr) {
      kernel_.misuse("CreateProcessW: a standard handle is not open");
    }
  }
  if (!state.record.inheritHandles) {
    return;
  }
  for (const auto handle : kernel_.inheritable()) {
    ++state.record.inheritedCount;
    const bool isInput = handle == standardHandles.input;
    const bool isOutput = handle == standardHandles.output;
    state.record.inheritsOnlyStandardHandles = state.record.inheritsOnlyStandardHandles && (isInput || isOutput);
    if (const auto end = std::dynamic_pointer_cast<PipeEnd>(kernel_.find(handle))) {
      auto copy = std::make_shared<PipeEnd>(kernel_, end->pipe, end->writes);
      state.input = isInput ? copy : state.input;
      state.output = isOutput ? copy : state.output;
      state.inherited.push_back(std::move(copy));
    }
  }
}

platform::Status Processes::TerminateProcess(platform::NativeHandle process, std::uint32_t exitCode) {
  if (const auto error = kernel_.faults.pass("TerminateProcess")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<ProcessObject>(process, "TerminateProcess");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  if (object->isSignalled()) {
    return {false, platform::kErrorAccessDenied};
  }
  end(*object->state, Ending::kTerminated, exitCode);
  return {true, 0};
}

platform::Result<std::uint32_t> Processes::GetExitCodeProcess(platform::NativeHandle process) {
  if (const auto error = kernel_.faults.pass("GetExitCodeProcess")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<ProcessObject>(process, "GetExitCodeProcess");
  return object == nullptr ? platform::Result<std::uint32_t>{false, 0, platform::kErrorInvalidHandle}
                           : platform::Result<std::uint32_t>{true, object->state->record.exitCode, 0};
}

platform::Result<platform::KernelHandle> Processes::CreateJobObjectW() {
  if (const auto error = kernel_.faults.pass("CreateJobObjectW")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  return {true, platform::KernelHandle(kernel_.add(std::make_shared<JobObject>())), 0};
}

platform::Status Processes::AssignProcessToJobObject(platform::NativeHandle job, platform::NativeHandle process) {
  if (const auto error = kernel_.faults.pass("AssignProcessToJobObject")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto jobObject = kernel_.get<JobObject>(job, "AssignProcessToJobObject");
  const auto object = kernel_.get<ProcessObject>(process, "AssignProcessToJobObject");
  if (jobObject == nullptr || object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  if (object->isSignalled()) {
    return {false, platform::kErrorAccessDenied};
  }
  jobObject->members.push_back(object->state);
  object->state->jobs.push_back(jobObject);
  return {true, 0};
}

platform::Status Processes::TerminateJobObject(platform::NativeHandle job, std::uint32_t exitCode) {
  if (const auto error = kernel_.faults.pass("TerminateJobObject")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto object = kernel_.get<JobObject>(job, "TerminateJobObject");
  if (object == nullptr) {
    return {false, platform::kErrorInvalidHandle};
  }
  for (const auto& member : object->members) {
    end(*member, Ending::kJobTerminated, exitCode);
  }
  return {true, 0};
}

platform::Result<platform::Pipe> Processes::CreatePipe(bool inheritable) {
  if (const auto error = kernel_.faults.pass("CreatePipe")) {
    return {false, {}, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto buffer = std::make_shared<PipeBuffer>();
  buffer->capacity = inlineChildren ? SIZE_MAX : pipeCapacity;
  platform::Pipe pipe;
  pipe.read = platform::KernelHandle(kernel_.add(std::make_shared<PipeEnd>(kernel_, buffer, false)));
  pipe.write = platform::KernelHandle(kernel_.add(std::make_shared<PipeEnd>(kernel_, buffer, true)));
  kernel_.setInherit(pipe.read.get(), inheritable);
  kernel_.setInherit(pipe.write.get(), inheritable);
  return {true, std::move(pipe), 0};
}

platform::Result<std::uint32_t> Processes::PeekNamedPipe(platform::NativeHandle pipe) {
  if (const auto error = kernel_.faults.pass("PeekNamedPipe")) {
    return {false, 0, *error};
  }
  const Guard guard(kernel_.mutex);
  const auto end = kernel_.get<PipeEnd>(pipe, "PeekNamedPipe");
  if (end == nullptr) {
    return {false, 0, platform::kErrorInvalidHandle};
  }
  if (end->writes) {
    return {false, 0, platform::kErrorAccessDenied};
  }
  if (end->pipe->bytes.empty() && end->pipe->writers == 0) {
    return {false, 0, platform::kErrorBrokenPipe};
  }
  return {true, static_cast<std::uint32_t>(end->pipe->bytes.size()), 0};
}

void Processes::Sleep(std::uint32_t milliseconds) {
  kernel_.faults.note("Sleep");
  kernel_.sleep(milliseconds);
}

}  // namespace sim
