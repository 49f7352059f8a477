#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

// CreateFileW: rights of access.
inline constexpr std::uint32_t kGenericRead = 0x80000000;   ///< GENERIC_READ
inline constexpr std::uint32_t kGenericWrite = 0x40000000;  ///< GENERIC_WRITE
inline constexpr std::uint32_t kFileReadData = 0x1;         ///< FILE_READ_DATA
inline constexpr std::uint32_t kFileAppendData = 0x4;       ///< FILE_APPEND_DATA: every write goes to the end
inline constexpr std::uint32_t kDelete = 0x00010000;        ///< DELETE

// CreateFileW: what others may do with the file meanwhile (FILE_SHARE_...).
inline constexpr std::uint32_t kFileShareRead = 0x1;
inline constexpr std::uint32_t kFileShareWrite = 0x2;
inline constexpr std::uint32_t kFileShareDelete = 0x4;
inline constexpr std::uint32_t kFileShareAll = kFileShareRead | kFileShareWrite | kFileShareDelete;

// CreateFileW: what it does when the file exists, and when it does not.
inline constexpr std::uint32_t kCreateNew = 1;     ///< CREATE_NEW
inline constexpr std::uint32_t kOpenExisting = 3;  ///< OPEN_EXISTING
inline constexpr std::uint32_t kOpenAlways = 4;    ///< OPEN_ALWAYS

// CreateFileW: attributes and flags.
inline constexpr std::uint32_t kFileAttributeNormal = 0x80;           ///< FILE_ATTRIBUTE_NORMAL
inline constexpr std::uint32_t kFileFlagDeleteOnClose = 0x04000000;   ///< FILE_FLAG_DELETE_ON_CLOSE
inline constexpr std::uint32_t kFileFlagSequentialScan = 0x08000000;  ///< FILE_FLAG_SEQUENTIAL_SCAN

inline constexpr std::uint32_t kMoveFileReplaceExisting = 1;  ///< MOVEFILE_REPLACE_EXISTING

/// The longest path that the platform takes, in characters without the terminator: UNICODE_STRING_MAX_CHARS.
inline constexpr std::size_t kMaxPathCharacters = 32767;

inline constexpr ErrorCode kErrorNoMoreFiles = 18;
inline constexpr ErrorCode kErrorSharingViolation = 32;
inline constexpr ErrorCode kErrorLockViolation = 33;
inline constexpr ErrorCode kErrorDiskFull = 112;

/// One file or folder that a search found.
struct FoundFile {
  std::wstring name;  ///< without its folder
  std::uint64_t size = 0;
  bool isFolder = false;
};

/// Traits of a search, which FindClose closes.
struct FindHandleTraits {
  using Type = NativeHandle;
  static Type invalid() { return invalidHandleValue(); }
  static bool isValid(Type handle) { return handle != nullptr && handle != invalidHandleValue(); }
  static void close(Type handle);
};

/// Owner of a search.
using FindHandle = UniqueHandle<FindHandleTraits>;

/// The file system. Every operation is one platform or library call of that name; any thread may call.
class Files {
 public:
  virtual ~Files() = default;

  /// Returns 0 when the path is accessible in that mode (mode 0: it exists), otherwise -1.
  virtual int _waccess(const std::wstring& path, int mode) = 0;
  /// Makes one folder; the one above it has to exist.
  /// \param descriptor  a security descriptor for the new folder; null makes it without security attributes.
  virtual Status CreateDirectoryW(const std::wstring& path, NativeHandle descriptor = nullptr) = 0;

  /// Opens a file, without inheritance and security attributes.
  /// \return ok when the handle is not INVALID_HANDLE_VALUE.
  virtual Result<KernelHandle> CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                           std::uint32_t disposition, std::uint32_t flagsAndAttributes) = 0;
  /// Reads from a file or a pipe. At the end of a file the call succeeds with 0 bytes; at the end of a pipe it fails
  /// with kErrorBrokenPipe.
  /// \return the bytes read.
  virtual Result<std::uint32_t> ReadFile(NativeHandle file, std::span<std::byte> buffer) = 0;
  /// Writes to a file or a pipe.
  /// \return the bytes written.
  virtual Result<std::uint32_t> WriteFile(NativeHandle file, std::span<const std::byte> data) = 0;
  /// Locks the byte at that offset for this handle alone, and never waits. Other handles may read and write elsewhere.
  virtual Status LockFileEx(NativeHandle file, std::uint64_t offset) = 0;
  virtual Status UnlockFileEx(NativeHandle file, std::uint64_t offset) = 0;
  virtual Result<std::uint64_t> GetFileSizeEx(NativeHandle file) = 0;

  /// Starts a search and finds the first entry that matches. The last part of the pattern may hold "*" and "?". Fails
  /// with kErrorFileNotFound when nothing matches.
  virtual Result<FindHandle> FindFirstFileW(const std::wstring& pattern, FoundFile& found) = 0;
  /// Finds the next entry. Fails with kErrorNoMoreFiles at the end.
  virtual Status FindNextFileW(NativeHandle search, FoundFile& found) = 0;
  virtual Status FindClose(NativeHandle search) = 0;
  virtual Status MoveFileExW(const std::wstring& from, const std::wstring& to, std::uint32_t flags) = 0;
  virtual Status DeleteFileW(const std::wstring& path) = 0;
  /// \return the bytes that the caller may still write on the volume of that folder, which has to exist.
  virtual Result<std::uint64_t> GetDiskFreeSpaceExW(const std::wstring& folder) = 0;

  /// Returns std::filesystem::file_size of the path. On failure it sets `error` and returns a number with all bits set.
  virtual std::uintmax_t file_size(const std::wstring& path, std::error_code& error) = 0;
  /// Removes a file or an empty folder with std::filesystem::remove. The path is decoded by the process's ANSI code
  /// page.
  /// \return true when the entry was removed; false with `error` clear when there was none.
  virtual bool remove(const std::string& path, std::error_code& error) = 0;
};

}  // namespace platform
