#pragma once

#include <map>
#include <string_view>

#include "platform/files.h"
#include "tests/sim/kernel.h"

namespace sim {

/// A file's bytes: either stored, or made from their offset (see Files::sparseByte).
struct FileContent {
  std::vector<std::byte> data;
  std::uint64_t sparseSize = 0;
  bool sparse = false;
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

  /// How remove() decodes its narrow path: UTF-8 (false) or Latin-1 (true).
  bool ansiIsLatin1 = false;

  int _waccess(const std::wstring& path, int mode) override;
  Status CreateDirectoryW(const std::wstring& path) override;
  Result<KernelHandle> CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                   std::uint32_t disposition, std::uint32_t flagsAndAttributes) override;
  Result<std::uint32_t> ReadFile(NativeHandle file, std::span<std::byte> buffer) override;
  Result<std::uint32_t> WriteFile(NativeHandle file, std::span<const std::byte> data) override;
  Result<std::uint64_t> GetFileSizeEx(NativeHandle file) override;
  std::uintmax_t file_size(const std::wstring& path, std::error_code& error) override;
  bool remove(const std::string& path, std::error_code& error) override;

 private:
  using Content = std::shared_ptr<FileContent>;
  struct OpenFile;

  Content find(const std::wstring& path) const;  ///< null: there is no such file
  bool hasFolder(const std::wstring& path) const;
  std::vector<std::wstring> below(const std::wstring& path) const;
  Content make(const std::wstring& path);
  void makeFolders(const std::wstring& path);

  Kernel& kernel_;
  std::map<std::wstring, Content> entries_;  ///< by clean, lower-cased path; null for a folder
};

}  // namespace sim
