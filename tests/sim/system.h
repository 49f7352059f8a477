#pragma once

#include "platform/system.h"
#include "tests/sim/kernel.h"

namespace sim {

/// The process's surroundings; what the program set is there to look at.
class System : public platform::System {
 public:
  explicit System(Kernel& kernel) : kernel_(kernel) {}

  std::wstring systemDirectory = L"C:\\Windows\\System32";
  std::wstring modulePath = L"C:\\Program Files\\Meridon\\mdDCT.exe";
  bool winHttpLoaded = true;  ///< whether GetModuleHandleW knows winhttp.dll

  std::uint32_t dllDirectories() const;  ///< flags of the last SetDefaultDllDirectories, 0 before
  std::wstring currentDirectory() const;

  platform::Status SetDefaultDllDirectories(std::uint32_t flags) override;
  platform::Result<std::wstring> GetSystemDirectoryW() override;
  platform::Status SetCurrentDirectoryW(const std::wstring& path) override;
  platform::Result<std::wstring> GetModuleFileNameW() override;
  platform::NativeHandle GetModuleHandleW(const std::wstring& name) override;

 private:
  Kernel& kernel_;
  std::uint32_t dllDirectories_ = 0;
  std::wstring currentDirectory_ = L"C:\\";
};

}  // namespace sim
