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
  void append(const std::wstring& path, std::string_view bytes);
  /// A file of that size whose bytes take no memory.
  void writeSparse(const std::wstring& path, std::uint64_t size);
  /// Grows (with zero bytes) or shrinks a file.
  void resize(const std::wstring& path, std::uint64_t size);
  void makeFolder(const std::wstring& path);
  /// Removes a file, or a folder with all in it; handles that are open stay usable.
  void erase(const std::wstring& path);

  bool exists(const std::wstring& path) const;
  bool isFolder(const std::wstring& path) const;
  std::uint64_t size(const std::wstring& path) const;  ///< 0 when there is none
  std::string read(const std::wstring& path) const;    ///< empty when there is none
  /// Full paths of files and folders below a folder, at any depth, in order.
  std::vector<std::wstring> list(const std::wstring& folder) const;
  /// The byte of a sparse file at that offset.
  static std::byte sparseByte(std::uint64_t offset);

  /// How remove() decodes its narrow path: UTF-8 (false) or Latin-1 (true).
  bool ansiIsLatin1 = false;
  /// Narrow paths given to remove(), in order.
  std::vector<std::string> removed() const;

  int _waccess(const std::wstring& path, int mode) override;
  platform::Status CreateDirectoryW(const std::wstring& path) override;
  platform::Result<platform::KernelHandle> CreateFileW(const std::wstring& path, std::uint32_t access,
                                                       std::uint32_t share, std::uint32_t disposition,
                                                       std::uint32_t flagsAndAttributes) override;
  platform::Result<std::uint32_t> ReadFile(platform::NativeHandle file, std::span<std::byte> buffer) override;
  platform::Result<std::uint32_t> WriteFile(platform::NativeHandle file, std::span<const std::byte> data) override;
  platform::Result<std::uint64_t> GetFileSizeEx(platform::NativeHandle file) override;
  std::uintmax_t file_size(const std::wstring& path, std::error_code& error) override;
  bool remove(const std::string& path, std::error_code& error) override;

 private:
  struct Node {
    std::wstring path;
    std::shared_ptr<FileContent> content;  ///< null for a folder
  };
  struct OpenFile;

  Node* find(const std::wstring& path);
  const Node* find(const std::wstring& path) const;
  std::shared_ptr<FileContent> make(const std::wstring& path);
  void makeParents(const std::wstring& path);
  bool hasFolder(const std::wstring& path) const;
  bool hasParent(const std::wstring& path) const;
  bool isEmptyFolder(const std::wstring& path) const;
  void insert(const std::wstring& path, std::shared_ptr<FileContent> content);
  void forget(const std::wstring& path);

  Kernel& kernel_;
  std::map<std::wstring, Node> nodes_;  ///< by clean, lower-cased path
  std::vector<std::string> removed_;
};

}  // namespace sim
