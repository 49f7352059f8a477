#pragma once

#include <optional>

#include "tests/sim/files.h"

namespace sim {

/// Returns a path in the form in which paths are compared.
std::wstring keyOf(const std::wstring& path);
std::wstring parentOf(const std::wstring& path);  ///< in that form; empty when there is none
std::wstring nameOf(const std::wstring& path);    ///< the last part

struct OpenFile;

/// A file's bytes: either stored, or made from their offset (see Files::sparseByte).
struct FileContent {
  std::vector<std::byte> data;
  std::optional<std::uint64_t> sparseSize;
  bool deleted = false;  ///< the name is gone; handles still lead here
  std::wstring name;     ///< its last part, as it was written when the file was made
  std::vector<const OpenFile*> opens;
  std::map<std::uint64_t, const OpenFile*> locks;  ///< by offset
  std::uint64_t size() const { return sparseSize.value_or(data.size()); }
  /// Copies the bytes from `offset` on, as far as the buffer and the file go. Returns their number.
  std::size_t copy(std::uint64_t offset, std::span<std::byte> buffer) const;
};

/// What the handle of a file refers to. The kernel's mutex is held for its use and its destruction.
struct OpenFile : Stream {
  OpenFile(const Files& owner, std::shared_ptr<FileContent> file) : files(owner), content(std::move(file)) {
    content->opens.push_back(this);
  }
  ~OpenFile() override {
    std::erase(content->opens, this);
    std::erase_if(content->locks, [this](const auto& lock) { return lock.second == this; });
    content->deleted = content->deleted || deleteOnClose;
  }
  const char* kind() const override { return "file"; }
  std::uint32_t read(Guard&, std::span<std::byte> buffer) override {
    refuseIf((needs & kFileShareRead) == 0, kErrorAccessDenied);
    const std::size_t count = content->copy(position, buffer);
    position += count;
    return static_cast<std::uint32_t>(count);
  }
  std::uint32_t write(Guard&, std::span<const std::byte> written) override {
    refuseIf((needs & kFileShareWrite) == 0, kErrorAccessDenied);
    refuseIf(files.diskFull, kErrorDiskFull);
    std::vector<std::byte>& bytes = content->data;
    position = appends ? bytes.size() : position;
    bytes.resize(std::max<std::size_t>(bytes.size(), position + written.size()));
    std::ranges::copy(written, bytes.begin() + static_cast<std::ptrdiff_t>(position));
    position += written.size();
    return static_cast<std::uint32_t>(written.size());
  }
  const Files& files;  ///< not used by the destructor, which may run after that of the files
  const std::shared_ptr<FileContent> content;
  std::uint32_t needs = 0;  ///< what the others have to share: bits of FILE_SHARE_..., as in `share`
  std::uint32_t share = 0;
  bool appends = false;
  bool deleteOnClose = false;
  std::uint64_t position = 0;
};

}  // namespace sim
