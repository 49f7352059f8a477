#include "tests/sim/heap.h"

#include <new>

namespace sim {

struct Heap::Block : Object {
  explicit Block(void* address) : memory(address) {}
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() override { ::operator delete(memory); }
  const char* kind() const override { return "heap block"; }
  void* const memory;
};

platform::NativeHandle Heap::GetProcessHeap() {
  kernel_.faults.note("GetProcessHeap");
  return this;
}

void* Heap::HeapAlloc(platform::NativeHandle heap, std::size_t bytes) {
  if (kernel_.faults.pass("HeapAlloc")) {
    return nullptr;
  }
  const Guard guard(kernel_.mutex);
  if (heap != this) {
    kernel_.misuse("HeapAlloc: not the process heap");
    return nullptr;
  }
  void* const memory = ::operator new(bytes);
  kernel_.add(std::make_shared<Block>(memory), memory);
  return memory;
}

void Heap::HeapFree(platform::NativeHandle heap, void* memory) {
  kernel_.faults.note("HeapFree");
  const Guard guard(kernel_.mutex);
  if (heap != this) {
    kernel_.misuse("HeapFree: not the process heap");
  } else if (memory != nullptr) {
    kernel_.take<Block>(memory, "HeapFree");
  }
}

}  // namespace sim
