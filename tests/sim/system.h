#pragma once

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
    return kernel_.call(__func__, [] {});
  }
  Result<std::wstring> GetSystemDirectoryW() override {
    return kernel_.call(__func__, [] { return std::wstring(L"C:\\Windows\\System32"); });
  }
  Result<std::wstring> GetModuleFileNameW() override {
    return kernel_.call(__func__, [] { return std::wstring(L"C:\\Program Files\\Meridon\\mdDCT.exe"); });
  }
  Status SetCurrentDirectoryW(const std::wstring& path) override {
    return kernel_.call(__func__, [&] { currentDirectory_ = path; });
  }
  NativeHandle GetModuleHandleW(const std::wstring& name) override {
    const bool known = !kernel_.faults.pass(__func__) && winHttpLoaded && name == L"winhttp.dll";
    return known ? this : nullptr;
  }
  Result<std::uint32_t> GetFileVersionInfoSizeW(const std::wstring&) override {
    return kernel_.call(__func__, [&] { return static_cast<std::uint32_t>(versionBlock().size()); });
  }
  Status GetFileVersionInfoW(const std::wstring&, std::span<std::byte> block) override {
    return kernel_.call(__func__, [&] {
      const auto bytes = versionBlock();
      refuseIf(block.size() < bytes.size(), kErrorInsufficientBuffer);
      std::ranges::copy(bytes, block.begin());
    });
  }
  Result<std::span<const std::byte>> VerQueryValueW(std::span<const std::byte> block,
                                                    const std::wstring& name) override {
    return kernel_.call(__func__, [&] {
      const std::size_t end = kTranslationSize + utf16Bytes(kFileVersion, true).size();
      const std::map<std::wstring, std::span<const std::byte>> parts{
          {L"\\VarFileInfo\\Translation", block.first(kTranslationSize)},
          {L"\\StringFileInfo\\040904b0\\FileVersion", block.subspan(kTranslationSize, end - kTranslationSize)},
          {L"\\StringFileInfo\\040904b0\\FileDescription", block.subspan(end)}};
      refuseIf(!parts.contains(name), kErrorResourceTypeNotFound);
      return parts.at(name);
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
  static constexpr std::size_t kTranslationSize = 4;
  static constexpr const wchar_t* kFileVersion = L"1.2.3.4";
  struct Console : KernelObject {
    const char* kind() const override { return "console"; }
  };
  /// The translation (0x0409, 0x04B0) and the two texts, in a layout of the simulation's own.
  static std::vector<std::byte> versionBlock() {
    std::vector<std::byte> block{std::byte{0x09}, std::byte{0x04}, std::byte{0xB0}, std::byte{0x04}};
    for (const wchar_t* const part : {kFileVersion, L"Support bundle collector"}) {
      const auto bytes = utf16Bytes(part, true);
      block.insert(block.end(), bytes.begin(), bytes.end());
    }
    return block;
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
