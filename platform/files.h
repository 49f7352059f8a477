#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kGenericRead = 0x80000000;             ///< GENERIC_READ
inline constexpr std::uint32_t kFileAppendData = 0x4;                 ///< FILE_APPEND_DATA: every write goes to the end
inline constexpr std::uint32_t kFileShareAll = 0x7;                   ///< FILE_SHARE_READ | _WRITE | _DELETE
inline constexpr std::uint32_t kOpenExisting = 3;                     ///< OPEN_EXISTING
inline constexpr std::uint32_t kOpenAlways = 4;                       ///< OPEN_ALWAYS
inline constexpr std::uint32_t kFileAttributeNormal = 0x80;           ///< FILE_ATTRIBUTE_NORMAL
inline constexpr std::uint32_t kFileFlagSequentialScan = 0x08000000;  ///< FILE_FLAG_SEQUENTIAL_SCAN

/// The file system. Every operation is one platform or library call of that name; any thread may call.
class Files {
 public:
  virtual ~Files() = default;

  /// 0 when the path is accessible in that mode (0: it exists), otherwise -1.
  virtual int _waccess(const std::wstring& path, int mode) = 0;
  /// Without security attributes.
  virtual Status CreateDirectoryW(const std::wstring& path) = 0;

  /// Opens a file without inheritance and security attributes. ok: the handle is not INVALID_HANDLE_VALUE.
  virtual Result<KernelHandle> CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                           std::uint32_t disposition, std::uint32_t flagsAndAttributes) = 0;
  /// value: bytes read. A file at its end succeeds with 0 bytes; a pipe at its end fails with ERROR_BROKEN_PIPE (109).
  virtual Result<std::uint32_t> ReadFile(NativeHandle file, std::span<std::byte> buffer) = 0;
  /// value: bytes written.
  virtual Result<std::uint32_t> WriteFile(NativeHandle file, std::span<const std::byte> data) = 0;
  virtual Result<std::uint64_t> GetFileSizeEx(NativeHandle file) = 0;

  /// std::filesystem::file_size of the wide path; all bits set and `error` set on failure.
  virtual std::uintmax_t file_size(const std::wstring& path, std::error_code& error) = 0;
  /// std::filesystem::remove of a narrow path decoded by the process's ANSI code page: a file or an empty folder.
  /// True when the entry was removed; false with `error` clear when there was none.
  virtual bool remove(const std::string& path, std::error_code& error) = 0;
};

}  // namespace platform
