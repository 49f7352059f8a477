#include "platform/windows/windows_system.h"

#include "platform/windows/native.h"

namespace platform {

static_assert(kLoadLibrarySearchSystem32 == LOAD_LIBRARY_SEARCH_SYSTEM32);

namespace {

// The longest path that the system knows, in characters with the terminator.
constexpr DWORD kLongestPath = 32768;

}  // namespace

Status WindowsSystem::SetDefaultDllDirectories(std::uint32_t flags) {
  return statusOf(::SetDefaultDllDirectories(flags));
}

Result<std::wstring> WindowsSystem::GetSystemDirectoryW() {
  std::wstring path(kLongestPath, L'\0');
  const UINT length = ::GetSystemDirectoryW(path.data(), kLongestPath);
  const ErrorCode error = ::GetLastError();
  const bool ok = length != 0 && length < kLongestPath;
  path.resize(ok ? length : 0);
  return {ok, std::move(path), error};
}

Status WindowsSystem::SetCurrentDirectoryW(const std::wstring& path) {
  return statusOf(::SetCurrentDirectoryW(path.c_str()));
}

Result<std::wstring> WindowsSystem::GetModuleFileNameW() {
  std::wstring path(kLongestPath, L'\0');
  const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), kLongestPath);
  const ErrorCode error = ::GetLastError();
  const bool ok = length != 0 && length < kLongestPath;
  path.resize(ok ? length : 0);
  return {ok, std::move(path), error};
}

NativeHandle WindowsSystem::GetModuleHandleW(const std::wstring& name) { return ::GetModuleHandleW(name.c_str()); }

}  // namespace platform
