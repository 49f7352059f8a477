#include "tests/sim/processes.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "tests/sim/child_state.h"

namespace sim {
namespace {

struct ArgumentMemory : Object {
  const char* kind() const override { return "argument vector"; }
  std::vector<std::wstring> texts;
  std::vector<wchar_t*> pointers;
};

/// One argument: 2n backslashes and a quote are n backslashes and a switch of quoting, 2n+1 are n and a literal quote.
std::wstring takeArgument(const std::wstring& text, std::size_t& at) {
  std::wstring result;
  bool quoted = false;
  std::size_t backslashes = 0;
  for (; at < text.size() && (quoted || (text[at] != L' ' && text[at] != L'\t')); ++at) {
    const bool isQuote = text[at] == L'"';
    if (isQuote) {
      result.resize(result.size() - (backslashes + 1) / 2);
    }
    if (isQuote && backslashes % 2 == 0) {
      quoted = !quoted;
    } else {
      result += text[at];
    }
    backslashes = text[at] == L'\\' ? backslashes + 1 : 0;
  }
  return result;
}

}  // namespace

std::vector<std::wstring> splitCommandLine(const std::wstring& text) {
  // The program's name ends at the next quote when it is quoted, else at the next blank; backslashes mean nothing.
  const std::size_t start = text.starts_with(L'"') ? 1 : 0;
  std::size_t at = std::min(text.find_first_of(start == 1 ? L"\"" : L" \t", start), text.size());
  std::vector<std::wstring> arguments{text.substr(start, at - start)};
  at = std::min(at + start, text.size());
  while ((at = text.find_first_not_of(L" \t", at)) != std::wstring::npos) {
    arguments.push_back(takeArgument(text, at));
  }
  return arguments;
}

Child::Child(Processes& owner, std::shared_ptr<ChildState> state)
    : owner_(owner), state_(std::move(state)), commandLine_(owner.kernel_.copyOf(state_->record.commandLine)) {}

std::wstring Processes::GetCommandLineW() {
  kernel_.faults.note("GetCommandLineW");
  return commandLine;
}

Result<platform::ArgumentVector> Processes::CommandLineToArgvW(const std::wstring& text, int& count) {
  count = 0;
  return kernel_.call("CommandLineToArgvW", [&]() -> Result<platform::ArgumentVector> {
    auto memory = std::make_shared<ArgumentMemory>();
    memory->texts = splitCommandLine(text);
    for (std::wstring& argument : memory->texts) {
      memory->pointers.push_back(argument.data());
    }
    count = static_cast<int>(memory->texts.size());
    memory->pointers.push_back(nullptr);
    wchar_t** const vector = memory->pointers.data();
    kernel_.add(std::move(memory), vector);
    return {true, platform::ArgumentVector(vector), 0};
  });
}

void Processes::LocalFree(wchar_t** arguments) { kernel_.close<ArgumentMemory>("LocalFree", arguments); }

NativeHandle Processes::GetCurrentProcess() {
  kernel_.faults.note("GetCurrentProcess");
  return platform::invalidHandleValue();
}

std::uint32_t Processes::GetCurrentProcessId() {
  kernel_.faults.note("GetCurrentProcessId");
  return processId;
}

Result<std::uint32_t> Processes::ProcessIdToSessionId(std::uint32_t id) {
  return kernel_.call("ProcessIdToSessionId", [&]() -> Result<std::uint32_t> {
    return id == processId ? Result<std::uint32_t>{true, sessionId, 0} : Failure{platform::kErrorInvalidParameter};
  });
}

std::uint32_t Processes::GetCurrentThreadId() {
  kernel_.faults.note("GetCurrentThreadId");
  static std::atomic<std::uint32_t> next{4};
  thread_local const std::uint32_t number = next.fetch_add(4);
  return number;
}

Result<platform::ProcessInformation> Processes::CreateProcessW(const std::wstring& childCommandLine,
                                                               bool inheritHandles, std::uint32_t creationFlags,
                                                               const std::wstring& currentDirectory,
                                                               const platform::StandardHandles& standardHandles) {
  return kernel_.call("CreateProcessW", [&](Guard& guard) -> Result<platform::ProcessInformation> {
    const auto state = addChild(childCommandLine, currentDirectory);
    state->record.flags = creationFlags;
    state->record.inheritHandles = inheritHandles;
    inherit(*state, standardHandles);
    const auto id = state->record.id;
    platform::ProcessInformation information{KernelHandle(kernel_.add(std::make_shared<ProcessObject>(state))),
                                             KernelHandle(kernel_.add(std::make_shared<ThreadObject>())), id, id + 1};
    const auto script = script_;
    if (inlineChildren) {
      guard.unlock();
      run(state, script);
    } else {
      kernel_.startThread([this, state, script] { run(state, script); });
    }
    return {true, std::move(information), 0};
  });
}

void Processes::inherit(ChildState& state, const platform::StandardHandles& standardHandles) {
  for (const auto handle : {standardHandles.input, standardHandles.output}) {
    if (handle != nullptr) {
      kernel_.get<PipeEnd>(handle, "CreateProcessW");
    }
  }
  if (!state.record.inheritHandles) {
    return;
  }
  for (const auto handle : kernel_.inheritable) {
    ++state.record.inheritedCount;
    const auto& object = state.inherited.emplace_back(kernel_.find(handle));
    if (handle == standardHandles.input) {
      state.input = std::dynamic_pointer_cast<PipeEnd>(object);
    } else if (handle == standardHandles.output) {
      state.output = std::dynamic_pointer_cast<PipeEnd>(object);
    } else {
      state.record.inheritsOnlyStandardHandles = false;
    }
  }
}

Status Processes::TerminateProcess(NativeHandle process, std::uint32_t exitCode) {
  return kernel_.callOn<ProcessObject>("TerminateProcess", process, [&](ProcessObject& object) -> Status {
    if (object.isSignalled()) {
      return Failure{platform::kErrorAccessDenied};
    }
    end(*object.state, Ending::kTerminated, exitCode);
    return kDone;
  });
}

Result<std::uint32_t> Processes::GetExitCodeProcess(NativeHandle process) {
  return kernel_.callOn<ProcessObject>("GetExitCodeProcess", process, [](ProcessObject& object) {
    return Result<std::uint32_t>{true, object.state->record.exitCode, 0};
  });
}

Result<KernelHandle> Processes::CreateJobObjectW() {
  return kernel_.call("CreateJobObjectW", [&] { return kernel_.opened(std::make_shared<JobObject>()); });
}

Status Processes::AssignProcessToJobObject(NativeHandle job, NativeHandle process) {
  constexpr const char* kName = "AssignProcessToJobObject";
  return kernel_.callOn<ProcessObject>(kName, process, [&](ProcessObject& object) -> Status {
    const auto jobObject = kernel_.get<JobObject>(job, kName);
    if (jobObject == nullptr || object.isSignalled()) {
      return Failure{jobObject == nullptr ? platform::kErrorInvalidHandle : platform::kErrorAccessDenied};
    }
    object.state->job = jobObject;
    return kDone;
  });
}

Status Processes::TerminateJobObject(NativeHandle job, std::uint32_t exitCode) {
  return kernel_.callOn<JobObject>("TerminateJobObject", job, [&](JobObject& object) {
    for (const auto& child : children_) {
      if (child->job.get() == &object) {
        end(*child, Ending::kJobTerminated, exitCode);
      }
    }
    return kDone;
  });
}

Result<platform::Pipe> Processes::CreatePipe(bool inheritable) {
  return kernel_.call("CreatePipe", [&]() -> Result<platform::Pipe> {
    const auto buffer = std::make_shared<PipeBuffer>();
    buffer->capacity = inlineChildren ? SIZE_MAX : buffer->capacity;
    platform::Pipe pipe{KernelHandle(kernel_.add(std::make_shared<PipeEnd>(kernel_, buffer, false))),
                        KernelHandle(kernel_.add(std::make_shared<PipeEnd>(kernel_, buffer, true)))};
    if (inheritable) {
      kernel_.inheritable.insert({pipe.read.get(), pipe.write.get()});
    }
    return {true, std::move(pipe), 0};
  });
}

Result<std::uint32_t> Processes::PeekNamedPipe(NativeHandle pipe) {
  return kernel_.callOn<PipeEnd>("PeekNamedPipe", pipe, [](PipeEnd& end) -> Result<std::uint32_t> {
    if (end.writes) {
      return Failure{platform::kErrorAccessDenied};
    }
    if (end.pipe->bytes.empty() && !end.pipe->hasWriter) {
      return Failure{platform::kErrorBrokenPipe};
    }
    return {true, static_cast<std::uint32_t>(end.pipe->bytes.size()), 0};
  });
}

void Processes::Sleep(std::uint32_t milliseconds) {
  kernel_.faults.note("Sleep");
  kernel_.sleep(milliseconds);
}

}  // namespace sim
