#pragma once

#include <deque>

#include "tests/sim/processes.h"

namespace sim {

/// An anonymous pipe. The kernel's mutex guards it.
struct PipeBuffer {
  std::deque<std::byte> bytes;
  std::size_t capacity = 4096;
  bool hasReader = true;
  bool hasWriter = true;
};

/// One end of a pipe, which is open as long as a handle of the program or a child owns it. Destroyed with the mutex
/// held.
struct PipeEnd : Stream {
  PipeEnd(Kernel& owner, std::shared_ptr<PipeBuffer> buffer, bool writeEnd)
      : kernel(owner), pipe(std::move(buffer)), writes(writeEnd) {}
  ~PipeEnd() override;
  const char* kind() const override { return writes ? "pipe write end" : "pipe read end"; }

  /// Blocks while the pipe is empty and somebody can write.
  std::uint32_t read(Guard& guard, std::span<std::byte> buffer) override;
  /// Blocks while the pipe is full, somebody can read and `stop` is false.
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

/// A process, which exists independently of the handles to it. The kernel's mutex guards it.
struct ChildState {
  ChildRecord record;
  std::shared_ptr<PipeEnd> input;
  std::shared_ptr<PipeEnd> output;
  std::shared_ptr<PipeEnd> error;
  std::vector<std::shared_ptr<Object>> inherited;
  std::shared_ptr<JobObject> job;
  std::uint32_t wantedCode = 0;
  bool hasEnded() const { return record.ending != Ending::kRunning; }
};

/// What the handle of a process refers to. It is signalled once the process has ended.
struct ProcessObject : Waitable {
  explicit ProcessObject(std::shared_ptr<ChildState> childState) : state(std::move(childState)) {}
  const char* kind() const override { return "process"; }
  bool isSignalled() const override { return state->hasEnded(); }
  const std::shared_ptr<ChildState> state;
};

struct ThreadObject : KernelObject {
  const char* kind() const override { return "thread"; }
};

}  // namespace sim
