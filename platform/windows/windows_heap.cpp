#include "platform/windows/windows_heap.h"

#include "platform/windows/native.h"

namespace platform {

NativeHandle WindowsHeap::GetProcessHeap() { return ::GetProcessHeap(); }

void* WindowsHeap::HeapAlloc(NativeHandle heap, std::size_t bytes) { return ::HeapAlloc(heap, 0, bytes); }

void WindowsHeap::HeapFree(NativeHandle heap, void* memory) { ::HeapFree(heap, 0, memory); }

}  // namespace platform
