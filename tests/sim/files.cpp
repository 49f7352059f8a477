#include "tests/sim/files.h"

#include <algorithm>

#include "core/convert.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

constexpr platform::ErrorCode kErrorDirectoryNotEmpty = 145;
constexpr std::size_t kPeriod = 65521;  // a prime: no alignment of blocks repeats the bytes

/// A path in the form in which it is compared.
std::wstring keyOf(const std::wstring& path) {
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

std::wstring parentOf(const std::wstring& path) {
  const std::wstring key = keyOf(path);
  const auto cut = key.rfind(L'\\');
  return cut == std::wstring::npos ? L"" : key.substr(0, cut);
}

std::error_code systemError(platform::ErrorCode error) { return {static_cast<int>(error), std::system_category()}; }

}  // namespace

struct Files::OpenFile : Stream {
  const char* kind() const override { return "file"; }
  Result<std::uint32_t> read(Guard&, std::span<std::byte> buffer) override {
    if ((access & platform::kGenericRead) == 0) {
      return Failure{platform::kErrorAccessDenied};
    }
    const std::size_t count = content->copy(position, buffer);
    position += count;
    return {true, static_cast<std::uint32_t>(count), 0};
  }
  Result<std::uint32_t> write(Guard&, std::span<const std::byte> data) override {
    if ((access & platform::kFileAppendData) == 0 || content->sparse) {
      return Failure{platform::kErrorAccessDenied};
    }
    content->data.insert(content->data.end(), data.begin(), data.end());
    return {true, static_cast<std::uint32_t>(data.size()), 0};
  }
  Content content;
  std::uint32_t access = 0;
  std::uint64_t position = 0;
};

Files::Files(Kernel& kernel) : kernel_(kernel) {
  makeFolders(L"C:\\Windows\\System32");
  makeFolders(L"C:\\ProgramData");
}

Files::Content Files::find(const std::wstring& path) const {
  const auto found = entries_.find(keyOf(path));
  return found == entries_.end() ? nullptr : found->second;
}

bool Files::hasFolder(const std::wstring& path) const {
  const std::wstring key = keyOf(path);
  const bool isRoot = key.empty() || (key.size() == 2 && key[1] == L':');
  return isRoot || (entries_.contains(key) && find(key) == nullptr);
}

std::vector<std::wstring> Files::below(const std::wstring& folder) const {
  const std::wstring start = keyOf(folder) + L"\\";
  std::vector<std::wstring> paths;
  for (auto entry = entries_.lower_bound(start); entry != entries_.end() && entry->first.starts_with(start); ++entry) {
    paths.push_back(entry->first);
  }
  return paths;
}

void Files::makeFolders(const std::wstring& path) {
  if (!hasFolder(path)) {
    makeFolders(parentOf(path));
    entries_[keyOf(path)] = nullptr;
  }
}

Files::Content Files::make(const std::wstring& path) {
  makeFolders(parentOf(path));
  return entries_[keyOf(path)] = std::make_shared<FileContent>();
}

void Files::write(const std::wstring& path, std::string_view bytes) {
  const Guard guard(kernel_.mutex);
  const auto data = std::as_bytes(std::span(bytes));
  make(path)->data.assign(data.begin(), data.end());
}

void Files::writeSparse(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  const auto content = make(path);
  content->sparse = true;
  content->sparseSize = size;
}

void Files::resize(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  const auto content = find(path);
  if (content != nullptr && content->sparse) {
    content->sparseSize = size;
  } else if (content != nullptr) {
    content->data.resize(size);
  }
}

void Files::makeFolder(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  makeFolders(path);
}

void Files::erase(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  for (const std::wstring& entry : below(path)) {
    entries_.erase(entry);
  }
  entries_.erase(keyOf(path));
}

bool Files::exists(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  return hasFolder(path) || find(path) != nullptr;
}

bool Files::isFolder(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  return hasFolder(path);
}

std::string Files::read(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  std::string text;
  if (const auto content = find(path)) {
    text.resize(content->size());
    content->copy(0, std::as_writable_bytes(std::span(text)));
  }
  return text;
}

std::vector<std::wstring> Files::list(const std::wstring& folder) const {
  const Guard guard(kernel_.mutex);
  return below(folder);
}

std::byte Files::sparseByte(std::uint64_t offset) {
  return static_cast<std::byte>((offset % kPeriod * 2654435761u >> 11) & 0xFF);
}

std::size_t FileContent::copy(std::uint64_t offset, std::span<std::byte> buffer) const {
  static const auto pattern = [] {
    std::vector<std::byte> bytes;
    for (std::size_t i = 0; i < kPeriod; ++i) {
      bytes.push_back(Files::sparseByte(i));
    }
    return bytes;
  }();
  const std::vector<std::byte>& source = sparse ? pattern : data;
  const std::uint64_t rest = size() - std::min(offset, size());
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(buffer.size(), rest));
  for (std::size_t done = 0; done < count;) {
    const auto from = static_cast<std::size_t>((offset + done) % source.size());
    const std::size_t part = std::min(count - done, source.size() - from);
    std::copy_n(source.data() + from, part, buffer.data() + done);
    done += part;
  }
  return count;
}

int Files::_waccess(const std::wstring& path, int) { return !kernel_.faults.pass("_waccess") && exists(path) ? 0 : -1; }

Status Files::CreateDirectoryW(const std::wstring& path) {
  return kernel_.call("CreateDirectoryW", [&]() -> Status {
    if (hasFolder(path) || find(path) != nullptr) {
      return Failure{platform::kErrorAlreadyExists};
    }
    if (!hasFolder(parentOf(path))) {
      return Failure{platform::kErrorPathNotFound};
    }
    entries_[keyOf(path)] = nullptr;
    return kDone;
  });
}

Result<KernelHandle> Files::CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t,
                                        std::uint32_t disposition, std::uint32_t) {
  return kernel_.call("CreateFileW", [&]() -> Result<KernelHandle> {
    if (hasFolder(path)) {
      return Failure{platform::kErrorAccessDenied};
    }
    const auto old = find(path);
    if (!hasFolder(parentOf(path))) {
      return Failure{platform::kErrorPathNotFound};
    }
    if (old == nullptr && disposition != platform::kOpenAlways) {
      return Failure{platform::kErrorFileNotFound};
    }
    auto file = std::make_shared<OpenFile>();
    file->content = old != nullptr ? old : make(path);
    file->access = access;
    const bool existed = old != nullptr && disposition == platform::kOpenAlways;
    return kernel_.opened(file, existed ? platform::kErrorAlreadyExists : 0);
  });
}

Result<std::uint32_t> Files::ReadFile(NativeHandle handle, std::span<std::byte> buffer) {
  return kernel_.callOn<Stream>("ReadFile", handle,
                                [&](Stream& stream, Guard& guard) { return stream.read(guard, buffer); });
}

Result<std::uint32_t> Files::WriteFile(NativeHandle handle, std::span<const std::byte> data) {
  return kernel_.callOn<Stream>("WriteFile", handle,
                                [&](Stream& stream, Guard& guard) { return stream.write(guard, data); });
}

Result<std::uint64_t> Files::GetFileSizeEx(NativeHandle handle) {
  return kernel_.callOn<OpenFile>("GetFileSizeEx", handle, [](OpenFile& file) -> Result<std::uint64_t> {
    return {true, file.content->size(), 0};
  });
}

std::uintmax_t Files::file_size(const std::wstring& path, std::error_code& error) {
  const auto size = kernel_.call("file_size", [&]() -> Result<std::uintmax_t> {
    const auto content = find(path);
    return content == nullptr ? Result<std::uintmax_t>(Failure{platform::kErrorFileNotFound})
                              : Result<std::uintmax_t>{true, content->size(), 0};
  });
  error = size.ok ? std::error_code() : systemError(size.error);
  return size.ok ? size.value : static_cast<std::uintmax_t>(-1);
}

bool Files::remove(const std::string& path, std::error_code& error) {
  const auto removed = kernel_.call("remove", [&]() -> Status {
    std::wstring wide(path.size(), L' ');
    if (ansiIsLatin1) {
      std::transform(path.begin(), path.end(), wide.begin(),
                     [](char byte) { return static_cast<unsigned char>(byte); });
    } else {
      wide = CORE::toWideLossy(path);
    }
    if (hasFolder(wide) && !below(wide).empty()) {
      return Failure{kErrorDirectoryNotEmpty};
    }
    return {entries_.erase(keyOf(wide)) != 0, 0};
  });
  error = removed.error != 0 ? systemError(removed.error) : std::error_code();
  return removed.ok;
}

}  // namespace sim
