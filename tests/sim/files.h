#pragma once

#include <atomic>

#include "platform/files.h"
#include "tests/sim/kernel.h"

namespace sim {

struct FileContent;

/// A file system in memory. Paths compare without case; "/" counts as "\". Drives exist by themselves, and so do
/// C:\Windows\System32\WindowsPowerShell\v1.0 and C:\ProgramData. Any thread; the test's own calls may change files
/// that are open.
class Files : public platform::Files {
 public:
  explicit Files(Kernel& kernel);

  /// Makes or replaces a file, with the folders above it. The second makes one of that size whose bytes take no memory.
  void write(const std::wstring& path, std::string_view bytes);
  void writeSparse(const std::wstring& path, std::uint64_t size);
  /// Grows (with zero bytes) or shrinks a file.
  void resize(const std::wstring& path, std::uint64_t size);
  /// Removes a file, or a folder and everything in it. Open handles stay usable.
  void erase(const std::wstring& path);
  bool exists(const std::wstring& path) const;
  bool hasFolder(const std::wstring& path) const;    ///< lock held
  std::string read(const std::wstring& path) const;  ///< empty when there is none
  /// Returns the full paths, in lower case, of all files and folders below a folder, in order.
  std::vector<std::wstring> list(const std::wstring& folder) const;
  static std::byte sparseByte(std::uint64_t offset);               ///< the byte of a sparse file at that offset
  std::wstring descriptorOf(const std::wstring& folder) const;     ///< the text with which it was made; empty: none
  bool ansiIsLatin1 = false;                                       ///< for the narrow path of remove(); else UTF-8
  int removeErrno = 0;                                             ///< with which remove() fails, in the terms of C
  std::atomic<std::uint64_t> freeBytes{std::uint64_t{100} << 30};  ///< what GetDiskFreeSpaceExW reports
  std::atomic<bool> diskFull{false};                               ///< writing to any file fails with kErrorDiskFull

  int _waccess(const std::wstring& path, int mode) override;
  Status CreateDirectoryW(const std::wstring& path, NativeHandle descriptor = nullptr) override;
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

 private:
  using Content = std::shared_ptr<FileContent>;
  struct Search;

  Content find(const std::wstring& path) const;  ///< null: there is no such file
  /// Finds a file as find does. The call fails when the folder does not exist, or when `needs` (bits of FILE_SHARE_...)
  /// or `share` conflicts with a handle that is open on the file.
  Content findFor(std::uint32_t needs, const std::wstring& path, std::uint32_t share = kFileShareAll) const;
  std::vector<std::wstring> below(const std::wstring& path) const;
  Content make(const std::wstring& path);
  void makeFolders(const std::wstring& path);

  Kernel& kernel_;
  std::map<std::wstring, Content> entries_;           ///< by clean, lower-cased path; null for a folder
  std::map<std::wstring, std::wstring> descriptors_;  ///< of folders, by the same
};

}  // namespace sim
