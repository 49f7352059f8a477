#pragma once

#include "platform/heap.h"
#include "platform/system.h"
#include "tests/sim/files.h"
#include "tests/sim/kernel.h"
#include "tests/sim/registry.h"

namespace sim {

/// Folders, modules, version resources and the console of the process; a test can read what the program has changed.
class System : public platform::System {
 public:
  System(Kernel& kernel, const Files& files) : kernel_(kernel), files_(files) {}

  bool hasConsole = false;  ///< whether the parent has one to attach to
  /// Returns what was written to the console.
  std::wstring consoleText() const { return kernel_.copyOf(consoleText_); }
  std::wstring currentDirectory() const { return kernel_.copyOf(currentDirectory_); }

  Status SetDefaultDllDirectories(std::uint32_t) override {
    return kernel_.call(__func__, [] {});
  }
  Result<std::wstring> GetSystemDirectoryW() override {
    return kernel_.call(__func__, [] { return std::wstring(L"C:\\Windows\\System32"); });
  }
  Result<std::wstring> GetModuleFileNameW() override {
    return kernel_.call(__func__, [] { return std::wstring(L"C:\\Program Files\\Meridon\\mdDCT.exe"); });
  }
  Status SetCurrentDirectoryW(const std::wstring& path) override {
    return kernel_.call(__func__, [&] {
      refuseIf(!files_.hasFolder(path), kErrorFileNotFound);
      currentDirectory_ = path;
    });
  }
  NativeHandle GetModuleHandleW(const std::wstring& name) override {
    return !kernel_.faults.pass(__func__) && name == L"winhttp.dll" ? this : nullptr;
  }
  Result<std::uint32_t> GetFileVersionInfoSizeW(const std::wstring&) override {
    return kernel_.call(__func__, [] { return kVersionBlockSize; });
  }
  Status GetFileVersionInfoW(const std::wstring&, std::span<std::byte> block) override {
    return kernel_.call(__func__, [&] { refuseIf(block.size() < kVersionBlockSize, kErrorInsufficientBuffer); });
  }
  Result<std::span<const std::byte>> VerQueryValueW(std::span<const std::byte> block,
                                                    const std::wstring& name) override {
    return kernel_.call(__func__, [&] {
      const auto found = version_.find(name);
      refuseIf(found == version_.end() || block.size() < kVersionBlockSize, kErrorResourceTypeNotFound);
      return std::span<const std::byte>(found->second);
    });
  }
  Status AttachConsole() override {
    return kernel_.call(__func__, [&] {
      refuseIf(!hasConsole, kErrorInvalidHandle);
      const bool first = kernel_.devices.try_emplace(L"CONOUT$", std::make_shared<Console>()).second;
      refuseIf(!first, kErrorAccessDenied);
    });
  }
  Status WriteConsoleW(NativeHandle console, const std::wstring& text) override {
    return kernel_.callOn<Console>(__func__, console, [&](Console&) { consoleText_ += text; });
  }

 private:
  static constexpr ErrorCode kErrorResourceTypeNotFound = 1813;
  static constexpr std::uint32_t kVersionBlockSize = 100;
  struct Console : KernelObject {
    const char* kind() const override { return "console"; }
  };
  Kernel& kernel_;
  const Files& files_;
  const std::map<std::wstring, std::vector<std::byte>> version_{
      {L"\\VarFileInfo\\Translation", utf16Bytes(L"\u0409\u04B0", false)},
      {L"\\StringFileInfo\\040904b0\\FileVersion", utf16Bytes(L"1.2.3.4", true)},
      {L"\\StringFileInfo\\040904b0\\FileDescription", utf16Bytes(L"Support bundle collector", true)}};
  std::wstring currentDirectory_ = L"C:\\";
  std::wstring consoleText_;
};

/// The process heap. Its blocks come from the native heap, so that the sanitizers watch them.
class Heap : public platform::Heap {
 public:
  explicit Heap(Kernel& kernel) : kernel_(kernel) {}

  NativeHandle GetProcessHeap() override {
    kernel_.faults.note(__func__);
    return this;
  }
  void* HeapAlloc(NativeHandle, std::size_t bytes) override {
    const auto allocated = kernel_.call(__func__, [&] {
      auto block = std::make_shared<Block>();
      block->memory = std::make_unique<std::byte[]>(bytes);
      void* const memory = block->memory.get();
      return kernel_.add(std::move(block), memory);
    });
    return allocated.value;
  }
  void HeapFree(NativeHandle, void* memory) override { kernel_.close<Block>(__func__, memory); }

 private:
  struct Block : Object {
    const char* kind() const override { return "heap block"; }
    std::unique_ptr<std::byte[]> memory;
  };
  Kernel& kernel_;
};

}  // namespace sim
