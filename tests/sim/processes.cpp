#include "tests/sim/processes.h"

#include <atomic>
#include <deque>

namespace sim {
namespace {

constexpr ErrorCode kErrorNoData = 232;  // the pipe is being closed: nobody reads any more
constexpr std::uint32_t kProcessId = 4242;

struct ArgumentMemory : Object {
  const char* kind() const override { return "argument vector"; }
  std::vector<std::wstring> texts;
  std::vector<wchar_t*> pointers;
};

}  // namespace

/// An anonymous pipe. Under the kernel's mutex.
struct PipeBuffer {
  std::deque<std::byte> bytes;
  std::size_t capacity = 4096;
  bool hasReader = true;
  bool hasWriter = true;
};

/// One end of a pipe, open as long as a handle of the program or a child holds it. Dropped with the mutex held.
struct PipeEnd : Stream {
  PipeEnd(Kernel& owner, std::shared_ptr<PipeBuffer> buffer, bool writeEnd)
      : kernel(owner), pipe(std::move(buffer)), writes(writeEnd) {}
  ~PipeEnd() override;
  const char* kind() const override { return writes ? "pipe write end" : "pipe read end"; }

  /// Blocks while the pipe is empty and somebody can write.
  std::uint32_t read(Guard& guard, std::span<std::byte> buffer) override;
  /// Blocks while the pipe is full and somebody can read, and `stop` is false.
  std::uint32_t write(Guard& guard, std::span<const std::byte> data, const std::function<bool()>& stop);
  std::uint32_t write(Guard& guard, std::span<const std::byte> data) override {
    return write(guard, data, [] { return false; });
  }

  Kernel& kernel;
  const std::shared_ptr<PipeBuffer> pipe;
  const bool writes;
};

struct JobObject : KernelObject {
  const char* kind() const override { return "job"; }
};

/// A process apart from the handles to it. All under the kernel's mutex.
struct ChildState {
  ChildRecord record;
  std::shared_ptr<PipeEnd> input;
  std::shared_ptr<PipeEnd> output;
  std::vector<std::shared_ptr<Object>> inherited;
  std::shared_ptr<JobObject> job;
  std::uint32_t wantedCode = 0;
  bool hasEnded() const { return record.ending != Ending::kRunning; }
};

/// What the handle of a process leads to: signalled once the process has ended.
struct ProcessObject : Waitable {
  explicit ProcessObject(std::shared_ptr<ChildState> childState) : state(std::move(childState)) {}
  const char* kind() const override { return "process"; }
  bool isSignalled() const override { return state->hasEnded(); }
  const std::shared_ptr<ChildState> state;
};

struct ThreadObject : KernelObject {
  const char* kind() const override { return "thread"; }
};

// The children's own side, and the pipes between them and the program.

PipeEnd::~PipeEnd() {
  (writes ? pipe->hasWriter : pipe->hasReader) = false;
  kernel.wake();
}

std::uint32_t PipeEnd::read(Guard& guard, std::span<std::byte> buffer) {
  refuseIf(writes, kErrorAccessDenied);
  kernel.waitUntil(guard, kInfinite, "ReadFile on a pipe", [&] { return !pipe->bytes.empty() || !pipe->hasWriter; });
  refuseIf(pipe->bytes.empty(), kErrorBrokenPipe);
  const auto count = std::min(buffer.size(), pipe->bytes.size());
  std::copy_n(pipe->bytes.begin(), count, buffer.begin());
  pipe->bytes.erase(pipe->bytes.begin(), pipe->bytes.begin() + static_cast<std::ptrdiff_t>(count));
  kernel.wake();
  return static_cast<std::uint32_t>(count);
}

std::uint32_t PipeEnd::write(Guard& guard, std::span<const std::byte> data, const std::function<bool()>& stop) {
  refuseIf(!writes, kErrorAccessDenied);
  for (std::size_t written = 0; written < data.size();) {
    kernel.idle(guard, [&] { return pipe->bytes.size() < pipe->capacity || !pipe->hasReader || stop(); });
    refuseIf(!pipe->hasReader || stop(), kErrorNoData);
    const auto part = data.subspan(written, std::min(data.size() - written, pipe->capacity - pipe->bytes.size()));
    pipe->bytes.insert(pipe->bytes.end(), part.begin(), part.end());
    written += part.size();
    kernel.wake();
  }
  return static_cast<std::uint32_t>(data.size());
}

/// The kernel's lock; a child that has been terminated goes no further.
Guard Child::runningGuard() const {
  Guard guard(owner_.kernel_.mutex);
  if (state_->hasEnded()) {
    throw ChildTerminated{};
  }
  return guard;
}

std::wstring Child::argumentAfter(const std::wstring& option) const {
  const auto all = splitCommandLine(owner_.kernel_.copyOf(state_->record.commandLine));
  const auto found = std::find(all.begin(), all.end(), option);
  return all.end() - found < 2 ? L"" : *(found + 1);
}

bool Child::write(std::string_view text) {
  Guard guard = runningGuard();
  const auto output = state_->output;
  try {
    if (output != nullptr) {
      output->write(guard, std::as_bytes(std::span(text)), [&] { return state_->hasEnded(); });
    }
    return output != nullptr;
  } catch (const Failure&) {
    return state_->hasEnded() ? throw ChildTerminated{} : false;
  }
}

std::string Child::readInput() {
  Guard guard = runningGuard();
  const auto pipe = state_->input->pipe;
  owner_.kernel_.idle(guard, [&] { return !pipe->hasWriter || state_->hasEnded() || owner_.inlineChildren; });
  std::string text(pipe->bytes.size(), ' ');
  std::ranges::copy(pipe->bytes, std::as_writable_bytes(std::span(text)).begin());
  pipe->bytes.clear();
  return text;
}

void Child::exit(std::uint32_t code) { owner_.kernel_.set(state_->wantedCode, code); }

void Child::hang() {
  Guard guard = runningGuard();
  owner_.kernel_.idle(guard, [&] { return state_->hasEnded(); });
  throw ChildTerminated{};
}

void Child::spawn(std::function<void(Child&)> script) {
  const Guard guard = runningGuard();
  const auto state = owner_.addChild(L"grandchild", state_->record.folder);
  state->input = state_->input;
  state->output = state_->output;
  state->inherited = state_->inherited;
  state->job = state_->job;
  owner_.kernel_.startThread([owner = &owner_, state, script = std::move(script)] { owner->run(state, script); });
}

void Processes::onStart(std::function<void(Child&)> script) { kernel_.set(script_, std::move(script)); }

std::vector<ChildRecord> Processes::children() const {
  const Guard guard(kernel_.mutex);
  std::vector<ChildRecord> records;
  for (const auto& child : children_) {
    records.push_back(child->record);
  }
  return records;
}

std::size_t Processes::running() const {
  return static_cast<std::size_t>(std::ranges::count(children(), Ending::kRunning, &ChildRecord::ending));
}

void Processes::endAll() {
  const Guard guard(kernel_.mutex);
  for (const auto& child : children_) {
    end(*child, Ending::kTerminated, 1);
  }
}

std::shared_ptr<ChildState> Processes::addChild(const std::wstring& childCommandLine, const std::wstring& folder) {
  const auto state = children_.emplace_back(std::make_shared<ChildState>());
  state->record.id = nextId_;
  state->record.commandLine = childCommandLine;
  state->record.folder = folder;
  nextId_ += 4;
  return state;
}

void Processes::run(const std::shared_ptr<ChildState>& state, const std::function<void(Child&)>& script) {
  if (script != nullptr) {
    try {
      Child child(*this, state);
      script(child);
    } catch (const ChildTerminated&) {
    }
  }
  const Guard guard(kernel_.mutex);
  end(*state, Ending::kExited, state->wantedCode);
}

void Processes::end(ChildState& state, Ending ending, std::uint32_t code) {
  if (state.hasEnded()) {
    return;
  }
  state.record.ending = ending;
  state.record.exitCode = code;
  state.input.reset();
  state.output.reset();
  state.inherited.clear();
  kernel_.wake();
}

// The platform's calls.

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
  for (const auto handle : {standardHandles.input, standardHandles.output}) {
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

Result<Pipe> Processes::CreatePipe(bool inheritable) {
  return kernel_.call(__func__, [&] {
    const auto buffer = std::make_shared<PipeBuffer>();
    buffer->capacity = inlineChildren ? SIZE_MAX : buffer->capacity;
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
