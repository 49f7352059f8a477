#include "tests/sim/files.h"

#include <optional>

#include "core/base/unicode.h"
#include "tests/sim/security.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

constexpr ErrorCode kErrorFileExists = 80;
constexpr ErrorCode kErrorDirectoryNotEmpty = 145;
constexpr ErrorCode kErrorNotLocked = 158;
constexpr std::size_t kPeriod = 65521;  // a prime: no alignment of blocks repeats the bytes

// The bits of FILE_SHARE_READ, _WRITE and _DELETE.
constexpr std::uint32_t kReads = 1;
constexpr std::uint32_t kWrites = 2;
constexpr std::uint32_t kDeletes = 4;

/// A path in the form in which it is compared.
std::wstring keyOf(const std::wstring& path) {
  std::wstring key;
  for (const wchar_t character : path) {
    const wchar_t next = character == L'/' ? L'\\' : lowerCase(character);
    if (next != L'\\' || key.size() < 2 || key.back() != L'\\') {
      key += next;
    }
  }
  key.resize(std::max(key.find_last_not_of(L'\\') + 1, std::min<std::size_t>(key.size(), 1)));
  return key;
}

std::wstring parentOf(const std::wstring& path) {
  const std::wstring key = keyOf(path);
  const auto cut = key.rfind(L'\\');
  return cut == std::wstring::npos ? L"" : key.substr(0, cut);
}

std::wstring nameOf(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/") + 1); }

/// What an opening needs others to share.
std::uint32_t neededBy(std::uint32_t access, std::uint32_t flags) {
  const bool reads = (access & (kGenericRead | kFileReadData)) != 0;
  const bool writes = (access & (kGenericWrite | kFileAppendData)) != 0;
  const bool deletes = (access & kDelete) != 0 || (flags & kFileFlagDeleteOnClose) != 0;
  return (reads ? kReads : 0) | (writes ? kWrites : 0) | (deletes ? kDeletes : 0);
}

bool matches(std::wstring_view pattern, std::wstring_view name) {
  if (pattern.empty() || name.empty()) {
    return name.empty() && pattern.find_first_not_of(L'*') == std::wstring_view::npos;
  }
  if (pattern[0] == L'*') {
    return matches(pattern.substr(1), name) || matches(pattern, name.substr(1));
  }
  return (pattern[0] == L'?' || pattern[0] == name[0]) && matches(pattern.substr(1), name.substr(1));
}

std::error_code systemError(ErrorCode error) { return {static_cast<int>(error), std::system_category()}; }

}  // namespace

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
  /// Copies what there is from `offset` on; returns how much.
  std::size_t copy(std::uint64_t offset, std::span<std::byte> buffer) const;
};

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
  std::uint32_t read(Guard&, std::span<std::byte> buffer) override {
    refuseIf((needs & kReads) == 0, kErrorAccessDenied);
    const std::size_t count = content->copy(position, buffer);
    position += count;
    return static_cast<std::uint32_t>(count);
  }
  std::uint32_t write(Guard&, std::span<const std::byte> written) override {
    refuseIf((needs & kWrites) == 0, kErrorAccessDenied);
    refuseIf(files.diskFull, kErrorDiskFull);
    std::vector<std::byte>& bytes = content->data;
    position = appends ? bytes.size() : position;
    bytes.resize(std::max<std::size_t>(bytes.size(), position + written.size()));
    std::ranges::copy(written, bytes.begin() + static_cast<std::ptrdiff_t>(position));
    position += written.size();
    return static_cast<std::uint32_t>(written.size());
  }
  const Files& files;  ///< not for the destructor, which may come later than its own
  const std::shared_ptr<FileContent> content;
  std::uint32_t needs = 0;  ///< bits of the access
  std::uint32_t share = 0;
  bool appends = false;
  bool deleteOnClose = false;
  std::uint64_t position = 0;
};

struct Files::Search : Object {
  const char* kind() const override { return "search"; }
  std::vector<FoundFile> found;
  std::size_t at = 0;
};

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
  const std::vector<std::byte>& source = sparseSize ? pattern : data;
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

Files::Files(Kernel& kernel) : kernel_(kernel) {
  makeFolders(L"C:\\Windows\\System32");
  makeFolders(L"C:\\ProgramData");
}

Files::Content Files::find(const std::wstring& path) const {
  const auto found = entries_.find(keyOf(path));
  return found == entries_.end() || (found->second != nullptr && found->second->deleted) ? nullptr : found->second;
}

Files::Content Files::findFor(std::uint32_t needs, const std::wstring& path, std::uint32_t share) const {
  refuseIf(hasFolder(path), kErrorAccessDenied);
  refuseIf(!hasFolder(parentOf(path)), kErrorPathNotFound);
  const auto content = find(path);
  const auto collides = [&](const OpenFile* open) {
    return (needs & ~open->share) != 0 || (open->needs & ~share) != 0;
  };
  refuseIf(content != nullptr && std::ranges::any_of(content->opens, collides), kErrorSharingViolation);
  return content;
}

bool Files::hasFolder(const std::wstring& path) const {
  const std::wstring key = keyOf(path);
  const bool isRoot = key.empty() || (key.size() == 2 && key[1] == L':');
  const auto found = entries_.find(key);
  return isRoot || (found != entries_.end() && found->second == nullptr);
}

std::vector<std::wstring> Files::below(const std::wstring& folder) const {
  const std::wstring start = keyOf(folder) + L"\\";
  std::vector<std::wstring> paths;
  for (auto entry = entries_.lower_bound(start); entry != entries_.end() && entry->first.starts_with(start); ++entry) {
    if (entry->second == nullptr || !entry->second->deleted) {
      paths.push_back(entry->first);
    }
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
  const auto content = std::make_shared<FileContent>();
  content->name = nameOf(path);
  return entries_[keyOf(path)] = content;
}

// For the test.

void Files::write(const std::wstring& path, std::string_view bytes) {
  const Guard guard(kernel_.mutex);
  const auto data = std::as_bytes(std::span(bytes));
  make(path)->data.assign(data.begin(), data.end());
}

void Files::writeSparse(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  make(path)->sparseSize = size;
}

void Files::resize(const std::wstring& path, std::uint64_t size) {
  const Guard guard(kernel_.mutex);
  const auto content = find(path);
  if (content->sparseSize) {
    content->sparseSize = size;
  } else {
    content->data.resize(size);
  }
}

void Files::erase(const std::wstring& path) {
  const Guard guard(kernel_.mutex);
  std::ranges::for_each(below(path), [&](const std::wstring& entry) { entries_.erase(entry); });
  entries_.erase(keyOf(path));
}

bool Files::exists(const std::wstring& path) const {
  const Guard guard(kernel_.mutex);
  return hasFolder(path) || find(path) != nullptr;
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

std::wstring Files::descriptorOf(const std::wstring& folder) const {
  const Guard guard(kernel_.mutex);
  const auto found = descriptors_.find(keyOf(folder));
  return found == descriptors_.end() ? L"" : found->second;
}

// The platform's calls.

int Files::_waccess(const std::wstring& path, int) { return !kernel_.faults.pass(__func__) && exists(path) ? 0 : -1; }

Status Files::CreateDirectoryW(const std::wstring& path, NativeHandle descriptor) {
  const char* const name = __func__;
  return kernel_.call(name, [&] {
    refuseIf(hasFolder(path) || find(path) != nullptr, kErrorAlreadyExists);
    refuseIf(!hasFolder(parentOf(path)), kErrorPathNotFound);
    descriptors_[keyOf(path)] = descriptor == nullptr ? L"" : kernel_.need<DescriptorMemory>(descriptor, name)->text;
    entries_[keyOf(path)] = nullptr;
  });
}

Result<KernelHandle> Files::CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                        std::uint32_t disposition, std::uint32_t flagsAndAttributes) {
  return kernel_.call(__func__, [&]() -> Result<KernelHandle> {
    if (const auto device = kernel_.devices.find(path); device != kernel_.devices.end()) {
      return {true, kernel_.opened(device->second), 0};
    }
    const std::uint32_t needs = neededBy(access, flagsAndAttributes);
    const auto old = findFor(needs, path, share);
    refuseIf(old == nullptr && disposition == kOpenExisting, kErrorFileNotFound);
    refuseIf(old != nullptr && disposition == kCreateNew, kErrorFileExists);
    auto file = std::make_shared<OpenFile>(*this, old == nullptr ? make(path) : old);
    file->needs = needs;
    file->share = share;
    file->appends = (access & kFileAppendData) != 0;
    file->deleteOnClose = (flagsAndAttributes & kFileFlagDeleteOnClose) != 0;
    const bool existed = old != nullptr && disposition == kOpenAlways;
    return {true, kernel_.opened(file), existed ? kErrorAlreadyExists : 0};
  });
}

Result<std::uint32_t> Files::ReadFile(NativeHandle handle, std::span<std::byte> buffer) {
  return kernel_.callOn<Stream>(__func__, handle, [&](Stream& from, Guard& guard) { return from.read(guard, buffer); });
}

Result<std::uint32_t> Files::WriteFile(NativeHandle handle, std::span<const std::byte> data) {
  return kernel_.callOn<Stream>(__func__, handle, [&](Stream& to, Guard& guard) { return to.write(guard, data); });
}

Result<std::uint64_t> Files::GetFileSizeEx(NativeHandle handle) {
  return kernel_.callOn<OpenFile>(__func__, handle, [](OpenFile& file) { return file.content->size(); });
}

Status Files::LockFileEx(NativeHandle handle, std::uint64_t offset) {
  return kernel_.callOn<OpenFile>(__func__, handle, [&](OpenFile& file) {
    refuseIf((file.needs & kReads) == 0 && file.appends, kErrorAccessDenied);
    refuseIf(!file.content->locks.try_emplace(offset, &file).second, kErrorLockViolation);
  });
}

Status Files::UnlockFileEx(NativeHandle handle, std::uint64_t offset) {
  kernel_.faults.note(__func__);  // a call that gives back cannot be failed
  const Guard guard(kernel_.mutex);
  const auto file = kernel_.get<OpenFile>(handle, __func__);
  const auto isOwn = [&](const auto& lock) { return lock.first == offset && lock.second == file.get(); };
  return file != nullptr && std::erase_if(file->content->locks, isOwn) != 0 ? kDone : Failure{kErrorNotLocked};
}

Result<FindHandle> Files::FindFirstFileW(const std::wstring& pattern, FoundFile& found) {
  return kernel_.call(__func__, [&] {
    const std::wstring folder = parentOf(pattern);
    const std::wstring wanted = lowerCase(nameOf(pattern));
    refuseIf(!hasFolder(folder), kErrorPathNotFound);
    auto search = std::make_shared<Search>();
    for (const wchar_t* const dots : {L".", L".."}) {
      if (matches(wanted, dots)) {
        search->found.push_back({dots, 0, true});
      }
    }
    for (const std::wstring& entry : below(folder)) {
      const auto content = find(entry);
      if (parentOf(entry) == folder && matches(wanted, nameOf(entry))) {
        search->found.push_back({content == nullptr ? nameOf(entry) : content->name,
                                 content == nullptr ? 0 : content->size(), content == nullptr});
      }
    }
    refuseIf(search->found.empty(), kErrorFileNotFound);
    found = search->found[search->at++];
    return kernel_.opened<FindHandle>(search);
  });
}

Status Files::FindNextFileW(NativeHandle search, FoundFile& found) {
  return kernel_.callOn<Search>(__func__, search, [&](Search& object) {
    refuseIf(object.at == object.found.size(), kErrorNoMoreFiles);
    found = object.found[object.at++];
  });
}

Status Files::FindClose(NativeHandle search) { return kernel_.close<Search>(__func__, search); }

Status Files::MoveFileExW(const std::wstring& from, const std::wstring& to, std::uint32_t flags) {
  return kernel_.call(__func__, [&] {
    const auto source = findFor(kDeletes, from);
    const auto target = findFor(kDeletes, to);
    refuseIf(source == nullptr, kErrorFileNotFound);
    refuseIf(target != nullptr && (flags & kMoveFileReplaceExisting) == 0, kErrorAlreadyExists);
    entries_.erase(keyOf(from));
    entries_[keyOf(to)] = source;
    source->name = nameOf(to);
  });
}

Status Files::DeleteFileW(const std::wstring& path) {
  return kernel_.call(__func__, [&] {
    refuseIf(findFor(kDeletes, path) == nullptr, kErrorFileNotFound);
    entries_.erase(keyOf(path));
  });
}

Result<std::uint64_t> Files::GetDiskFreeSpaceExW(const std::wstring& folder) {
  return kernel_.call(__func__, [&] {
    refuseIf(!hasFolder(folder), kErrorPathNotFound);
    return freeBytes.load();
  });
}

std::uintmax_t Files::file_size(const std::wstring& path, std::error_code& error) {
  const auto size = kernel_.call(__func__, [&] {
    const auto content = find(path);
    refuseIf(content == nullptr, kErrorFileNotFound);
    return content->size();
  });
  error = size.ok ? std::error_code() : systemError(size.error);
  return size.ok ? size.value : static_cast<std::uintmax_t>(-1);
}

bool Files::remove(const std::string& path, std::error_code& error) {
  const auto removed = kernel_.call(__func__, [&] {
    std::wstring wide = CORE::toWideLossy(path);
    if (ansiIsLatin1) {
      wide.resize(path.size());
      std::ranges::transform(path, wide.begin(), [](char byte) { return static_cast<unsigned char>(byte); });
    }
    refuseIf(hasFolder(wide) && !below(wide).empty(), kErrorDirectoryNotEmpty);
    if (find(wide) != nullptr) {
      findFor(kDeletes, wide);
    }
    return entries_.erase(keyOf(wide)) != 0;
  });
  error = removed.ok ? std::error_code() : systemError(removed.error);
  return removed.ok && removed.value;
}

}  // namespace sim
