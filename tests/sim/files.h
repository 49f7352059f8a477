#pragma once

#include <atomic>
#include <map>
#include <string_view>

#include "platform/files.h"
#include "tests/sim/kernel.h"

namespace sim {

struct OpenFile;

/// A file's bytes: either stored, or made from their offset (see Files::sparseByte).
struct FileContent {
  std::vector<std::byte> data;
  std::uint64_t sparseSize = 0;
  bool sparse = false;
  bool deleted = false;  ///< the name is gone; handles still lead here
  std::wstring name;     ///< its last part, as it was written when the file was made
  std::vector<OpenFile*> opens;
  std::map<std::uint64_t, const OpenFile*> locks;  ///< by offset
  std::uint64_t size() const { return sparse ? sparseSize : data.size(); }
  /// Copies what there is from `offset` on; returns how much.
  std::size_t copy(std::uint64_t offset, std::span<std::byte> buffer) const;
};

/// A file system in memory. Paths compare without case; "/" counts as "\". Drives exist by themselves, and so do
/// C:\Windows\System32 and C:\ProgramData. Any thread; the test's own calls may change files that are open.
class Files : public platform::Files {
 public:
  explicit Files(Kernel& kernel);

  /// Makes or replaces a file, with the folders above it.
  void write(const std::wstring& path, std::string_view bytes);
  /// A file of that size whose bytes take no memory.
  void writeSparse(const std::wstring& path, std::uint64_t size);
  /// Grows (with zero bytes) or shrinks a file.
  void resize(const std::wstring& path, std::uint64_t size);
  void makeFolder(const std::wstring& path);
  /// Removes a file, or a folder with all in it; handles that are open stay usable.
  void erase(const std::wstring& path);

  bool exists(const std::wstring& path) const;
  bool isFolder(const std::wstring& path) const;
  std::string read(const std::wstring& path) const;  ///< empty when there is none
  /// Full (lower-case) paths of files and folders below a folder, at any depth, in order.
  std::vector<std::wstring> list(const std::wstring& folder) const;
  /// The byte of a sparse file at that offset.
  static std::byte sparseByte(std::uint64_t offset);
  /// The text of the descriptor that a folder was made with; empty: none.
  std::wstring descriptorOf(const std::wstring& folder) const;

  /// How remove() decodes its narrow path: UTF-8 (false) or Latin-1 (true).
  bool ansiIsLatin1 = false;
  std::atomic<std::uint64_t> freeBytes{std::uint64_t{100} << 30};  ///< what GetDiskFreeSpaceExW tells
  std::atomic<bool> diskFull{false};                               ///< writing to any file fails with 112

  int _waccess(const std::wstring& path, int mode) override;
  Status CreateDirectoryW(const std::wstring& path, NativeHandle descriptor = nullptr) override;
  Result<KernelHandle> CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                   std::uint32_t disposition, std::uint32_t flagsAndAttributes) override;
  Result<std::uint32_t> ReadFile(NativeHandle file, std::span<std::byte> buffer) override;
  Result<std::uint32_t> WriteFile(NativeHandle file, std::span<const std::byte> data) override;
  Status LockFileEx(NativeHandle file, std::uint64_t offset) override;
  Status UnlockFileEx(NativeHandle file, std::uint64_t offset) override;
  Result<std::uint64_t> GetFileSizeEx(NativeHandle file) override;
  Result<platform::FindHandle> FindFirstFileW(const std::wstring& pattern, platform::FoundFile& found) override;
  Status FindNextFileW(NativeHandle search, platform::FoundFile& found) override;
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
  /// The file, when what is needed of others (bits of FILE_SHARE_...) and shared with them goes with its open handles.
  Result<Content> findFor(std::uint32_t needs, const std::wstring& path,
                          std::uint32_t share = platform::kFileShareAll) const;
  bool hasFolder(const std::wstring& path) const;
  std::vector<std::wstring> below(const std::wstring& path) const;
  Content make(const std::wstring& path);
  void makeFolders(const std::wstring& path);

  Kernel& kernel_;
  std::map<std::wstring, Content> entries_;           ///< by clean, lower-cased path; null for a folder
  std::map<std::wstring, std::wstring> descriptors_;  ///< of folders, by the same
};

}  // namespace sim
