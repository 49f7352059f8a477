#pragma once

#include "platform/files.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsFiles final : public Files {
 public:
  int _waccess(const std::wstring& path, int mode) override;
  Status CreateDirectoryW(const std::wstring& path, NativeHandle descriptor) override;
  Result<KernelHandle> CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                   std::uint32_t disposition, std::uint32_t flagsAndAttributes) override;
  Result<std::uint32_t> ReadFile(NativeHandle file, std::span<std::byte> buffer) override;
  Result<std::uint32_t> WriteFile(NativeHandle file, std::span<const std::byte> data) override;
  Status LockFileEx(NativeHandle file, std::uint64_t offset) override;
  Status UnlockFileEx(NativeHandle file, std::uint64_t offset) override;
  Result<std::uint64_t> GetFileSizeEx(NativeHandle file) override;
  Result<FindHandle> FindFirstFileW(const std::wstring& pattern, FoundFile& found) override;
  Status FindNextFileW(NativeHandle search, FoundFile& found) override;
  Status FindClose(NativeHandle search) override;
  Status MoveFileExW(const std::wstring& from, const std::wstring& to, std::uint32_t flags) override;
  Status DeleteFileW(const std::wstring& path) override;
  Result<std::uint64_t> GetDiskFreeSpaceExW(const std::wstring& folder) override;
  std::uintmax_t file_size(const std::wstring& path, std::error_code& error) override;
  bool remove(const std::string& path, std::error_code& error) override;
};

}  // namespace platform
