#pragma once

#include "platform/heap.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsHeap final : public Heap {
 public:
  NativeHandle GetProcessHeap() override;
  void* HeapAlloc(NativeHandle heap, std::size_t bytes) override;
  void HeapFree(NativeHandle heap, void* memory) override;
};

}  // namespace platform
