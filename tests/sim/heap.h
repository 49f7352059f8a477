#pragma once

#include "platform/heap.h"
#include "tests/sim/kernel.h"

namespace sim {

/// The process heap, on the native one, so that the sanitizers watch every block.
class Heap : public platform::Heap {
 public:
  explicit Heap(Kernel& kernel) : kernel_(kernel) {}

  platform::NativeHandle GetProcessHeap() override;
  void* HeapAlloc(platform::NativeHandle heap, std::size_t bytes) override;
  void HeapFree(platform::NativeHandle heap, void* memory) override;

 private:
  struct Block;
  Kernel& kernel_;
};

}  // namespace sim
