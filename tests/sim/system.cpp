#include "tests/sim/system.h"

#include "tests/sim/text.h"

namespace sim {

std::uint32_t System::dllDirectories() const {
  const Guard guard(kernel_.mutex);
  return dllDirectories_;
}

std::wstring System::currentDirectory() const {
  const Guard guard(kernel_.mutex);
  return currentDirectory_;
}

platform::Status System::SetDefaultDllDirectories(std::uint32_t flags) {
  if (const auto error = kernel_.faults.pass("SetDefaultDllDirectories")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  dllDirectories_ = flags;
  return {true, 0};
}

platform::Result<std::wstring> System::GetSystemDirectoryW() {
  if (const auto error = kernel_.faults.pass("GetSystemDirectoryW")) {
    return {false, {}, *error};
  }
  return {true, systemDirectory, 0};
}

platform::Status System::SetCurrentDirectoryW(const std::wstring& path) {
  if (const auto error = kernel_.faults.pass("SetCurrentDirectoryW")) {
    return {false, *error};
  }
  const Guard guard(kernel_.mutex);
  currentDirectory_ = path;
  return {true, 0};
}

platform::Result<std::wstring> System::GetModuleFileNameW() {
  if (const auto error = kernel_.faults.pass("GetModuleFileNameW")) {
    return {false, {}, *error};
  }
  return {true, modulePath, 0};
}

platform::NativeHandle System::GetModuleHandleW(const std::wstring& name) {
  if (kernel_.faults.pass("GetModuleHandleW")) {
    return nullptr;
  }
  return winHttpLoaded && lowerCase(name) == L"winhttp.dll" ? this : nullptr;
}

}  // namespace sim
