#include "platform/windows/windows_system.h"

#include "platform/files.h"
#include "platform/windows/native.h"

// After windows.h, which it needs.
#include <winver.h>

namespace platform {

static_assert(kLoadLibrarySearchSystem32 == LOAD_LIBRARY_SEARCH_SYSTEM32);

namespace {

/// Characters for the longest path that the system knows, with the terminator.
constexpr auto kPathBuffer = static_cast<DWORD>(kMaxPathCharacters) + 1;

}  // namespace

Status WindowsSystem::SetDefaultDllDirectories(std::uint32_t flags) {
  return statusOf(::SetDefaultDllDirectories(flags));
}

Result<std::wstring> WindowsSystem::GetSystemDirectoryW() {
  std::wstring path(kPathBuffer, L'\0');
  const UINT length = ::GetSystemDirectoryW(path.data(), kPathBuffer);
  const ErrorCode error = ::GetLastError();
  const bool ok = length != 0 && length < kPathBuffer;
  path.resize(ok ? length : 0);
  return {ok, std::move(path), error};
}

Status WindowsSystem::SetCurrentDirectoryW(const std::wstring& path) {
  return statusOf(::SetCurrentDirectoryW(path.c_str()));
}

Result<std::wstring> WindowsSystem::GetModuleFileNameW() {
  std::wstring path(kPathBuffer, L'\0');
  const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), kPathBuffer);
  const ErrorCode error = ::GetLastError();
  const bool ok = length != 0 && length < kPathBuffer;
  path.resize(ok ? length : 0);
  return {ok, std::move(path), error};
}

NativeHandle WindowsSystem::GetModuleHandleW(const std::wstring& name) { return ::GetModuleHandleW(name.c_str()); }

Result<std::uint32_t> WindowsSystem::GetFileVersionInfoSizeW(const std::wstring& path) {
  DWORD ignored = 0;
  const DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), &ignored);
  const ErrorCode error = ::GetLastError();
  return {size != 0, size, error};
}

Status WindowsSystem::GetFileVersionInfoW(const std::wstring& path, std::span<std::byte> block) {
  return statusOf(::GetFileVersionInfoW(path.c_str(), 0, atMostDword(block.size()), block.data()));
}

Result<std::span<const std::byte>> WindowsSystem::VerQueryValueW(std::span<const std::byte> block,
                                                                 const std::wstring& name) {
  void* data = nullptr;
  UINT length = 0;  // counts characters for a text, bytes for anything else
  const BOOL found = ::VerQueryValueW(block.data(), name.c_str(), &data, &length);
  const std::size_t unit = name.starts_with(L"\\StringFileInfo\\") ? sizeof(wchar_t) : 1;
  return resultOf(found, std::span(static_cast<const std::byte*>(data), length * unit));
}

Status WindowsSystem::AttachConsole() { return statusOf(::AttachConsole(ATTACH_PARENT_PROCESS)); }

Status WindowsSystem::WriteConsoleW(NativeHandle console, const std::wstring& text) {
  DWORD written = 0;
  return statusOf(::WriteConsoleW(console, text.data(), atMostDword(text.size()), &written, nullptr));
}

}  // namespace platform
