#pragma once

#include <algorithm>

#include "tests/sim/files.h"
#include "tests/sim/text.h"

namespace sim {

/// A path in the form in which it is compared.
inline std::wstring keyOf(const std::wstring& path) {
  std::wstring key;
  for (const wchar_t character : lowerCase(path)) {
    const wchar_t next = character == L'/' ? L'\\' : character;
    if (next != L'\\' || key.size() < 2 || key.back() != L'\\') {
      key += next;
    }
  }
  while (key.size() > 1 && key.back() == L'\\') {
    key.pop_back();
  }
  return key;
}

inline std::wstring parentOf(const std::wstring& path) {
  const std::wstring key = keyOf(path);
  const auto cut = key.rfind(L'\\');
  return cut == std::wstring::npos ? L"" : key.substr(0, cut);
}

inline std::wstring nameOf(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

// The bits of FILE_SHARE_READ, _WRITE and _DELETE.
inline constexpr std::uint32_t kReads = 1;
inline constexpr std::uint32_t kWrites = 2;
inline constexpr std::uint32_t kDeletes = 4;

/// What the handle of a file leads to. Under the kernel's mutex, as is its end.
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
  Result<std::uint32_t> read(Guard&, std::span<std::byte> buffer) override {
    if ((needs & kReads) == 0) {
      return Failure{platform::kErrorAccessDenied};
    }
    const std::size_t count = content->copy(position, buffer);
    position += count;
    return {true, static_cast<std::uint32_t>(count), 0};
  }
  Result<std::uint32_t> write(Guard&, std::span<const std::byte> data) override {
    if ((needs & kWrites) == 0 || content->sparse) {
      return Failure{platform::kErrorAccessDenied};
    }
    if (files.diskFull) {
      return Failure{platform::kErrorDiskFull};
    }
    std::vector<std::byte>& bytes = content->data;
    const auto at = appends ? bytes.size() : static_cast<std::size_t>(position);
    bytes.resize(std::max(bytes.size(), at + data.size()));
    std::copy(data.begin(), data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    position = at + data.size();
    return {true, static_cast<std::uint32_t>(data.size()), 0};
  }
  const Files& files;  ///< not for the destructor, which may come later than its own
  const std::shared_ptr<FileContent> content;
  std::uint32_t needs = 0;  ///< bits of the access
  std::uint32_t share = 0;
  bool appends = false;
  bool deleteOnClose = false;
  std::uint64_t position = 0;
};

}  // namespace sim
