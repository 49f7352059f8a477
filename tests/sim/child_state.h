#pragma once

#include "tests/sim/processes.h"

namespace sim {

struct JobObject;

/// A process apart from the handles to it. All under the kernel's mutex.
struct ChildState {
  ChildRecord record;
  std::shared_ptr<PipeEnd> input;
  std::shared_ptr<PipeEnd> output;
  std::vector<std::shared_ptr<PipeEnd>> inherited;
  std::vector<std::weak_ptr<JobObject>> jobs;
  std::uint32_t wantedCode = 0;

  bool hasEnded() const { return record.ending != Ending::kRunning; }
};

/// What the handles of a process and of its first thread lead to: signalled once the process has ended.
struct EndingObject : KernelObject {
  explicit EndingObject(std::shared_ptr<ChildState> childState) : state(std::move(childState)) {}
  bool isWaitable() const override { return true; }
  bool isSignalled() const override { return state->hasEnded(); }
  const std::shared_ptr<ChildState> state;
};

struct ProcessObject : EndingObject {
  using EndingObject::EndingObject;
  const char* kind() const override { return "process"; }
};

struct ThreadObject : EndingObject {
  using EndingObject::EndingObject;
  const char* kind() const override { return "thread"; }
};

struct JobObject : KernelObject {
  const char* kind() const override { return "job"; }
  std::vector<std::shared_ptr<ChildState>> members;
};

}  // namespace sim
