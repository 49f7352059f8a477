// The platform's calls on the simulated processes, jobs and pipes.
#include <atomic>

#include "tests/sim/process_handles.h"

namespace sim {
namespace {

constexpr std::uint32_t kProcessId = 4242;

struct ArgumentMemory : Object {
  const char* kind() const override { return "argument vector"; }
  std::vector<std::wstring> texts;
  std::vector<wchar_t*> pointers;
};

}  // namespace

std::vector<std::wstring> splitCommandLine(const std::wstring& text) {
  std::vector<std::wstring> arguments{{}};
  bool quoted = false;
  for (const wchar_t character : text) {
    quoted = quoted != (character == L'"');
    if (!quoted && character == L' ') {
      arguments.emplace_back();
    } else if (character != L'"') {
      arguments.back() += character;
    }
  }
  return arguments;
}

std::wstring Processes::GetCommandLineW() {
  kernel_.faults.note(__func__);
  return commandLine;
}

Result<ArgumentVector> Processes::CommandLineToArgvW(const std::wstring& text, int& count) {
  count = 0;
  return kernel_.call(__func__, [&] {
    auto memory = std::make_shared<ArgumentMemory>();
    memory->texts = splitCommandLine(text);
    for (std::wstring& argument : memory->texts) {
      memory->pointers.push_back(argument.data());
    }
    memory->pointers.push_back(nullptr);
    count = static_cast<int>(memory->texts.size());
    wchar_t** const vector = memory->pointers.data();
    kernel_.add(std::move(memory), vector);
    return ArgumentVector(vector);
  });
}

void Processes::LocalFree(wchar_t** arguments) { kernel_.close<ArgumentMemory>(__func__, arguments); }

NativeHandle Processes::GetCurrentProcess() {
  kernel_.faults.note(__func__);
  return invalidHandleValue();
}

std::uint32_t Processes::GetCurrentProcessId() {
  kernel_.faults.note(__func__);
  return kProcessId;
}

Result<std::uint32_t> Processes::ProcessIdToSessionId(std::uint32_t id) {
  return kernel_.call(__func__, [&] {
    refuseIf(id != kProcessId, kErrorInvalidParameter);
    return std::uint32_t{0};
  });
}

std::uint32_t Processes::GetCurrentThreadId() {
  kernel_.faults.note(__func__);
  static std::atomic<std::uint32_t> next{4};
  thread_local const std::uint32_t number = next.fetch_add(4);
  return number;
}

Result<ProcessInformation> Processes::CreateProcessW(const std::wstring& childCommandLine, bool inheritHandles,
                                                     std::uint32_t creationFlags, const std::wstring& currentDirectory,
                                                     const StandardHandles& standardHandles) {
  return kernel_.call(__func__, [&](Guard& guard) {
    const auto state = addChild(childCommandLine, currentDirectory);
    state->record.flags = creationFlags;
    state->record.inheritHandles = inheritHandles;
    inherit(*state, standardHandles);
    const auto id = state->record.id;
    ProcessInformation information{kernel_.opened(std::make_shared<ProcessObject>(state)),
                                   kernel_.opened(std::make_shared<ThreadObject>()), id, id + 1};
    const auto script = script_;
    if (inlineChildren) {
      guard.unlock();
      run(state, script);
    } else {
      kernel_.startThread([this, state, script] { run(state, script); });
    }
    return information;
  });
}

void Processes::inherit(ChildState& state, const StandardHandles& standardHandles) {
  for (const auto handle : {standardHandles.input, standardHandles.output, standardHandles.error}) {
    if (handle != nullptr) {
      kernel_.get<PipeEnd>(handle, "CreateProcessW");
    }
  }
  for (const auto handle : state.record.inheritHandles ? kernel_.inheritable : std::set<NativeHandle>()) {
    const auto& object = state.inherited.emplace_back(kernel_.find(handle));
    if (handle == standardHandles.input) {
      state.input = std::dynamic_pointer_cast<PipeEnd>(object);
    } else if (handle == standardHandles.output) {
      state.output = std::dynamic_pointer_cast<PipeEnd>(object);
    } else if (handle == standardHandles.error) {
      state.error = std::dynamic_pointer_cast<PipeEnd>(object);
    } else {
      state.record.inheritsOnlyStandardHandles = false;
    }
  }
}

Status Processes::TerminateProcess(NativeHandle process, std::uint32_t exitCode) {
  return kernel_.callOn<ProcessObject>(__func__, process, [&](ProcessObject& object) {
    refuseIf(object.isSignalled(), kErrorAccessDenied);
    end(*object.state, Ending::kTerminated, exitCode);
  });
}

Result<std::uint32_t> Processes::GetExitCodeProcess(NativeHandle process) {
  return kernel_.callOn<ProcessObject>(__func__, process,
                                       [](ProcessObject& object) { return object.state->record.exitCode; });
}

Result<KernelHandle> Processes::CreateJobObjectW() {
  return kernel_.call(__func__, [&] { return kernel_.opened(std::make_shared<JobObject>()); });
}

Status Processes::AssignProcessToJobObject(NativeHandle job, NativeHandle process) {
  const char* const name = __func__;
  return kernel_.callOn<ProcessObject>(name, process, [&](ProcessObject& object) {
    const auto jobObject = kernel_.need<JobObject>(job, name);
    refuseIf(object.isSignalled(), kErrorAccessDenied);
    object.state->job = jobObject;
  });
}

Status Processes::TerminateJobObject(NativeHandle job, std::uint32_t exitCode) {
  return kernel_.callOn<JobObject>(__func__, job, [&](JobObject& object) {
    for (const auto& child : children_) {
      if (child->job.get() == &object) {
        end(*child, Ending::kJobTerminated, exitCode);
      }
    }
  });
}

Result<Pipe> Processes::CreatePipe(bool inheritable, std::uint32_t bytes) {
  return kernel_.call(__func__, [&] {
    const auto buffer = std::make_shared<PipeBuffer>();
    buffer->capacity = inlineChildren ? SIZE_MAX : bytes != 0 ? bytes : buffer->capacity;
    Pipe pipe{kernel_.opened(std::make_shared<PipeEnd>(kernel_, buffer, false)),
              kernel_.opened(std::make_shared<PipeEnd>(kernel_, buffer, true))};
    if (inheritable) {
      kernel_.inheritable.insert({pipe.read.get(), pipe.write.get()});
    }
    return pipe;
  });
}

Result<std::uint32_t> Processes::PeekNamedPipe(NativeHandle pipe) {
  return kernel_.callOn<PipeEnd>(__func__, pipe, [](PipeEnd& end) {
    refuseIf(end.writes, kErrorAccessDenied);
    refuseIf(end.pipe->bytes.empty() && !end.pipe->hasWriter, kErrorBrokenPipe);
    return static_cast<std::uint32_t>(end.pipe->bytes.size());
  });
}

void Processes::Sleep(std::uint32_t milliseconds) {
  kernel_.faults.note(__func__);
  kernel_.sleep(milliseconds);
}

}  // namespace sim
