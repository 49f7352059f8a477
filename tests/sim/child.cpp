// The children's own side of the simulated processes, and the pipes between them and the program.
#include <algorithm>

#include "tests/sim/child_state.h"

namespace sim {

namespace {
constexpr platform::ErrorCode kErrorNoData = 232;  // the pipe is being closed: nobody reads any more
}

PipeEnd::~PipeEnd() {
  (writes ? pipe->hasWriter : pipe->hasReader) = false;
  kernel.wake();
}

Result<std::uint32_t> PipeEnd::read(Guard& guard, std::span<std::byte> buffer) {
  if (writes) {
    return Failure{platform::kErrorAccessDenied};
  }
  kernel.waitUntil(guard, platform::kInfinite, "ReadFile on a pipe",
                   [&] { return !pipe->bytes.empty() || !pipe->hasWriter; });
  if (pipe->bytes.empty()) {
    return Failure{platform::kErrorBrokenPipe};
  }
  const auto count = static_cast<std::ptrdiff_t>(std::min(buffer.size(), pipe->bytes.size()));
  std::copy_n(pipe->bytes.begin(), count, buffer.begin());
  pipe->bytes.erase(pipe->bytes.begin(), pipe->bytes.begin() + count);
  kernel.wake();
  return {true, static_cast<std::uint32_t>(count), 0};
}

Result<std::uint32_t> PipeEnd::write(Guard& guard, std::span<const std::byte> data, const std::function<bool()>& stop) {
  if (!writes) {
    return Failure{platform::kErrorAccessDenied};
  }
  std::size_t written = 0;
  while (written < data.size()) {
    kernel.idle(guard, [&] { return pipe->bytes.size() < pipe->capacity || !pipe->hasReader || stop(); });
    if (!pipe->hasReader || stop()) {
      return Failure{kErrorNoData};
    }
    const auto part = data.subspan(written, std::min(data.size() - written, pipe->capacity - pipe->bytes.size()));
    pipe->bytes.insert(pipe->bytes.end(), part.begin(), part.end());
    written += part.size();
    kernel.wake();
  }
  return {true, static_cast<std::uint32_t>(written), 0};
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
  const auto all = splitCommandLine(commandLine_);
  const auto found = std::find(all.begin(), all.end(), option);
  return all.end() - found < 2 ? L"" : *(found + 1);
}

bool Child::write(std::string_view text) {
  Guard guard = runningGuard();
  auto output = state_->output;
  const auto ended = [&] { return state_->hasEnded(); };
  const bool ok = output != nullptr && output->write(guard, std::as_bytes(std::span(text)), ended).ok;
  output.reset();
  if (ended()) {
    throw ChildTerminated{};
  }
  return ok;
}

std::string Child::readInput() {
  Guard guard = runningGuard();
  if (state_->input == nullptr) {
    return {};
  }
  const auto pipe = state_->input->pipe;
  owner_.kernel_.idle(guard, [&] { return !pipe->hasWriter || state_->hasEnded() || owner_.inlineChildren; });
  std::string text;
  for (const std::byte value : pipe->bytes) {
    text += static_cast<char>(value);
  }
  pipe->bytes.clear();
  return text;
}

void Child::exit(std::uint32_t code) {
  const Guard guard(owner_.kernel_.mutex);
  state_->wantedCode = code;
}

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

void Processes::onStart(std::function<void(Child&)> script) {
  const Guard guard(kernel_.mutex);
  script_ = std::move(script);
}

std::vector<ChildRecord> Processes::children() const {
  const Guard guard(kernel_.mutex);
  std::vector<ChildRecord> records;
  for (const auto& child : children_) {
    records.push_back(child->record);
  }
  return records;
}

std::size_t Processes::running() const {
  const auto all = children();
  return static_cast<std::size_t>(std::count_if(
      all.begin(), all.end(), [](const ChildRecord& record) { return record.ending == Ending::kRunning; }));
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

}  // namespace sim
