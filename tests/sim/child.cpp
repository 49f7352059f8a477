// The children's own side of the simulated processes.
#include "platform/objects.h"
#include "tests/sim/child_state.h"

namespace sim {

Child::Child(Processes& owner, std::shared_ptr<ChildState> state)
    : owner_(owner), state_(std::move(state)), record_([&] {
        const Guard guard(owner.kernel_.mutex);
        return state_->record;
      }()) {}

/// The kernel's lock; a child that has been terminated goes no further.
Guard Child::runningGuard() const {
  Guard guard(owner_.kernel_.mutex);
  if (state_->hasEnded()) {
    throw ChildTerminated{};
  }
  return guard;
}

std::vector<std::wstring> Child::arguments() const { return splitCommandLine(commandLine(), L""); }

std::wstring Child::argumentAfter(const std::wstring& option) const {
  const auto all = arguments();
  for (std::size_t i = 0; i + 1 < all.size(); ++i) {
    if (all[i] == option) {
      return all[i + 1];
    }
  }
  return {};
}

bool Child::write(std::string_view text) {
  Guard guard = runningGuard();
  auto output = state_->output;
  const bool ok =
      output != nullptr && output->write(guard, std::as_bytes(std::span(text)), [&] { return state_->hasEnded(); }).ok;
  output.reset();
  if (state_->hasEnded()) {
    throw ChildTerminated{};
  }
  return ok;
}

std::string Child::readInput() {
  Guard guard = runningGuard();
  auto input = state_->input;
  if (input == nullptr) {
    return {};
  }
  PipeBuffer& pipe = *input->pipe;
  owner_.kernel_.idle(guard, [&] { return pipe.writers == 0 || state_->hasEnded() || owner_.inlineChildren; });
  std::string text;
  for (const std::byte value : pipe.bytes) {
    text += static_cast<char>(value);
  }
  pipe.bytes.clear();
  input.reset();
  return text;
}

void Child::closeOutput() {
  const Guard guard = runningGuard();
  std::erase(state_->inherited, state_->output);
  state_->output.reset();
}

void Child::exit(std::uint32_t code) {
  const Guard guard(owner_.kernel_.mutex);
  state_->wantedCode = code;
}

void Child::hang() {
  Guard guard = runningGuard();
  const auto ended = [&] { return state_->hasEnded(); };
  if (owner_.inlineChildren) {
    owner_.kernel_.waitUntil(guard, platform::kInfinite, "a child that hangs inside CreateProcessW", ended);
  } else {
    owner_.kernel_.idle(guard, ended);
  }
  throw ChildTerminated{};
}

bool Child::terminated() const {
  const Guard guard(owner_.kernel_.mutex);
  return state_->hasEnded();
}

void Child::spawn(std::function<void(Child&)> script, bool keepsPipe, const std::wstring& childCommandLine) {
  const Guard guard = runningGuard();
  const auto state = owner_.addChild(record_.id, childCommandLine, record_.folder);
  if (keepsPipe) {
    const auto copy = [&](const std::shared_ptr<PipeEnd>& end) {
      return end == nullptr ? nullptr : std::make_shared<PipeEnd>(owner_.kernel_, end->pipe, end->writes);
    };
    state->input = copy(state_->input);
    state->output = copy(state_->output);
    for (const auto& end : state_->inherited) {
      if (end != state_->input && end != state_->output) {
        state->inherited.push_back(copy(end));
      }
    }
  }
  for (const auto& entry : state_->jobs) {
    if (const auto job = entry.lock()) {
      job->members.push_back(state);
      state->jobs.push_back(job);
    }
  }
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
  const Guard guard(kernel_.mutex);
  std::size_t count = 0;
  for (const auto& child : children_) {
    count += child->hasEnded() ? 0u : 1u;
  }
  return count;
}

void Processes::endAll() {
  const Guard guard(kernel_.mutex);
  for (const auto& child : children_) {
    end(*child, Ending::kTerminated, 1);
  }
}

std::shared_ptr<ChildState> Processes::addChild(std::uint32_t parentId, const std::wstring& childCommandLine,
                                                const std::wstring& folder) {
  auto state = std::make_shared<ChildState>();
  state->record.id = nextId_;
  state->record.parentId = parentId;
  state->record.commandLine = childCommandLine;
  state->record.folder = folder;
  nextId_ += 4;
  children_.push_back(state);
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
