#pragma once

#include "platform/heap.h"
#include "platform/system.h"
#include "tests/sim/kernel.h"

namespace sim {

/// The process's surroundings; what the program set is there to look at.
class System : public platform::System {
 public:
  explicit System(Kernel& kernel) : kernel_(kernel) {}

  bool winHttpLoaded = true;  ///< whether GetModuleHandleW knows winhttp.dll
  std::wstring currentDirectory() const { return kernel_.copyOf(currentDirectory_); }

  Status SetDefaultDllDirectories(std::uint32_t) override {
    return kernel_.call("SetDefaultDllDirectories", [] { return kDone; });
  }
  Result<std::wstring> GetSystemDirectoryW() override { return text("GetSystemDirectoryW", L"C:\\Windows\\System32"); }
  Result<std::wstring> GetModuleFileNameW() override {
    return text("GetModuleFileNameW", L"C:\\Program Files\\Meridon\\mdDCT.exe");
  }
  Status SetCurrentDirectoryW(const std::wstring& path) override {
    return kernel_.call("SetCurrentDirectoryW", [&] {
      currentDirectory_ = path;
      return kDone;
    });
  }
  NativeHandle GetModuleHandleW(const std::wstring& name) override {
    const bool known = !kernel_.faults.pass("GetModuleHandleW") && winHttpLoaded && name == L"winhttp.dll";
    return known ? this : nullptr;
  }

 private:
  Result<std::wstring> text(const char* name, const wchar_t* value) {
    return kernel_.call(name, [&]() -> Result<std::wstring> { return {true, value, 0}; });
  }

  Kernel& kernel_;
  std::wstring currentDirectory_ = L"C:\\";
};

/// The process heap, on the native one, so that the sanitizers watch every block.
class Heap : public platform::Heap {
 public:
  explicit Heap(Kernel& kernel) : kernel_(kernel) {}

  NativeHandle GetProcessHeap() override {
    kernel_.faults.note("GetProcessHeap");
    return this;
  }
  void* HeapAlloc(NativeHandle heap, std::size_t bytes) override {
    if (kernel_.faults.pass("HeapAlloc") || heap != this) {
      return nullptr;
    }
    const Guard guard(kernel_.mutex);
    auto block = std::make_shared<Block>();
    block->memory = std::make_unique<std::byte[]>(bytes);
    void* const memory = block->memory.get();
    return kernel_.add(std::move(block), memory);
  }
  void HeapFree(NativeHandle heap, void* memory) override {
    kernel_.close<Block>("HeapFree", heap == this ? memory : heap);
  }

 private:
  struct Block : Object {
    const char* kind() const override { return "heap block"; }
    std::unique_ptr<std::byte[]> memory;
  };
  Kernel& kernel_;
};

}  // namespace sim
