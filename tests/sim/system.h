#pragma once

#include <algorithm>

#include "platform/heap.h"
#include "platform/system.h"
#include "tests/sim/kernel.h"
#include "tests/sim/registry.h"

namespace sim {

/// The process's surroundings; what the program set is there to look at.
class System : public platform::System {
 public:
  explicit System(Kernel& kernel) : kernel_(kernel) {}

  bool winHttpLoaded = true;  ///< whether GetModuleHandleW knows winhttp.dll
  bool hasConsole = false;    ///< whether the parent has one to attach to
  /// What was written to it.
  std::wstring consoleText() const { return kernel_.copyOf(consoleText_); }
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
  Result<std::uint32_t> GetFileVersionInfoSizeW(const std::wstring&) override {
    return kernel_.call("GetFileVersionInfoSizeW", [&]() -> Result<std::uint32_t> {
      return {true, static_cast<std::uint32_t>(versionBlock().size()), 0};
    });
  }
  Status GetFileVersionInfoW(const std::wstring&, std::span<std::byte> block) override {
    return kernel_.call("GetFileVersionInfoW", [&]() -> Status {
      const auto bytes = versionBlock();
      if (block.size() < bytes.size()) {
        return Failure{platform::kErrorInsufficientBuffer};
      }
      std::ranges::copy(bytes, block.begin());
      return kDone;
    });
  }
  Result<std::span<const std::byte>> VerQueryValueW(std::span<const std::byte> block,
                                                    const std::wstring& name) override {
    return kernel_.call("VerQueryValueW", [&]() -> Result<std::span<const std::byte>> {
      const std::size_t version = utf16Bytes(kFileVersion, true).size();
      if (name == L"\\VarFileInfo\\Translation") {
        return {true, block.first(kTranslationSize), 0};
      }
      if (name == L"\\StringFileInfo\\040904b0\\FileVersion") {
        return {true, block.subspan(kTranslationSize, version), 0};
      }
      if (name == L"\\StringFileInfo\\040904b0\\FileDescription") {
        return {true, block.subspan(kTranslationSize + version), 0};
      }
      return Failure{kErrorResourceTypeNotFound};
    });
  }
  Status AttachConsole() override {
    return kernel_.call("AttachConsole", [&]() -> Status {
      if (!hasConsole || kernel_.devices.contains(L"CONOUT$")) {  // the second: it has been joined before
        return Failure{hasConsole ? platform::kErrorAccessDenied : platform::kErrorInvalidHandle};
      }
      kernel_.devices[L"CONOUT$"] = std::make_shared<Console>();
      return kDone;
    });
  }
  Status WriteConsoleW(NativeHandle console, const std::wstring& text) override {
    return kernel_.callOn<Console>("WriteConsoleW", console, [&](Console&) {
      consoleText_ += text;
      return kDone;
    });
  }

 private:
  static constexpr platform::ErrorCode kErrorResourceTypeNotFound = 1813;
  static constexpr std::size_t kTranslationSize = 4;
  static constexpr const wchar_t* kFileVersion = L"1.2.3.4";
  struct Console : KernelObject {
    const char* kind() const override { return "console"; }
  };
  /// The translation (0x0409, 0x04B0) and the two texts, in a layout of the simulation's own.
  std::vector<std::byte> versionBlock() const {
    std::vector<std::byte> block{std::byte{0x09}, std::byte{0x04}, std::byte{0xB0}, std::byte{0x04}};
    for (const wchar_t* const part : {kFileVersion, L"Support bundle collector"}) {
      const auto bytes = utf16Bytes(part, true);
      block.insert(block.end(), bytes.begin(), bytes.end());
    }
    return block;
  }
  Result<std::wstring> text(const char* name, const wchar_t* value) {
    return kernel_.call(name, [&]() -> Result<std::wstring> { return {true, value, 0}; });
  }

  Kernel& kernel_;
  std::wstring currentDirectory_ = L"C:\\";
  std::wstring consoleText_;
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
