#pragma once

#include <cstddef>

#include "platform/handle.h"

namespace platform {

/// The process heap. Every operation is one platform call of that name; any thread may call.
class Heap {
 public:
  virtual ~Heap() = default;

  virtual NativeHandle GetProcessHeap() = 0;
  /// Allocates with flags 0. Returns null when there is no memory.
  virtual void* HeapAlloc(NativeHandle heap, std::size_t bytes) = 0;
  virtual void HeapFree(NativeHandle heap, void* memory) = 0;
};

}  // namespace platform
