#pragma once

#include <deque>
#include <span>

#include "tests/sim/kernel.h"

namespace sim {

/// An anonymous pipe. All under the kernel's mutex.
struct PipeBuffer {
  std::deque<std::byte> bytes;
  std::size_t capacity = 4096;
  int readers = 0;
  int writers = 0;
};

/// One holder's end of a pipe: a handle of the program, or the copy that a child inherited. Dropped with the kernel's
/// mutex held.
class PipeEnd : public KernelObject {
 public:
  PipeEnd(Kernel& kernel, std::shared_ptr<PipeBuffer> pipe, bool writes);
  ~PipeEnd() override;
  const char* kind() const override { return writes ? "pipe write end" : "pipe read end"; }

  /// Blocks while the pipe is empty and somebody can write. Lock held, given up while it waits.
  platform::Result<std::uint32_t> read(Guard& guard, std::span<std::byte> buffer);
  /// Blocks while the pipe is full and somebody can read, and `stop` is false. Lock held, given up while it waits.
  platform::Result<std::uint32_t> write(Guard& guard, std::span<const std::byte> data,
                                        const std::function<bool()>& stop = {});

  const std::shared_ptr<PipeBuffer> pipe;
  const bool writes;

 private:
  Kernel& kernel_;
};

}  // namespace sim
