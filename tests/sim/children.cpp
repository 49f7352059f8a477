// The side of the simulated children: their scripts, and the pipes between them and the program.
#include "tests/sim/process_handles.h"

namespace sim {
namespace {

constexpr ErrorCode kErrorNoData = 232;  // the pipe is being closed: nobody reads any more

}  // namespace

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

/// Takes the kernel's lock, and ends the script of a child that has been terminated.
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

bool Child::writeTo(std::shared_ptr<PipeEnd> ChildState::*stream, std::string_view text) {
  Guard guard = runningGuard();
  const auto output = (*state_).*stream;
  try {
    if (output != nullptr) {
      output->write(guard, std::as_bytes(std::span(text)), [&] { return state_->hasEnded(); });
    }
    return output != nullptr;
  } catch (const Failure&) {
    return state_->hasEnded() ? throw ChildTerminated{} : false;
  }
}

bool Child::write(std::string_view text) { return writeTo(&ChildState::output, text); }

bool Child::complain(std::string_view text) {
  return writeTo(state_->error == nullptr ? &ChildState::output : &ChildState::error, text);
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
  state->error = state_->error;
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
  state.error.reset();
  state.inherited.clear();
  kernel_.wake();
}

}  // namespace sim
