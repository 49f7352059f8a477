#include "tests/sim/files.h"

#include <algorithm>

#include "core/convert.h"
#include "tests/sim/file_state.h"
#include "tests/sim/security.h"

namespace sim {
namespace {

constexpr platform::ErrorCode kErrorFileExists = 80;
constexpr platform::ErrorCode kErrorDirectoryNotEmpty = 145;
constexpr platform::ErrorCode kErrorNotLocked = 158;
constexpr std::size_t kPeriod = 65521;  // a prime: no alignment of blocks repeats the bytes

/// What an opening needs others to share.
std::uint32_t neededBy(std::uint32_t access, std::uint32_t flags) {
  const bool reads = (access & (platform::kGenericRead | platform::kFileReadData)) != 0;
  const bool writes = (access & (platform::kGenericWrite | platform::kFileAppendData)) != 0;
  const bool deletes = (access & platform::kDelete) != 0 || (flags & platform::kFileFlagDeleteOnClose) != 0;
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

std::error_code systemError(platform::ErrorCode error) { return {static_cast<int>(error), std::system_category()}; }

}  // namespace

struct Files::Search : Object {
  const char* kind() const override { return "search"; }
  Status next(platform::FoundFile& entry) {
    if (at == found.size()) {
      return Failure{platform::kErrorNoMoreFiles};
    }
    entry = found[at++];
    return kDone;
  }
  std::vector<platform::FoundFile> found;
  std::size_t at = 0;
};

Files::Files(Kernel& kernel) : kernel_(kernel) {
  makeFolders(L"C:\\Windows\\System32");
  makeFolders(L"C:\\ProgramData");
}

Files::Content Files::find(const std::wstring& path) const {
  const auto found = entries_.find(keyOf(path));
  return found == entries_.end() || (found->second != nullptr && found->second->deleted) ? nullptr : found->second;
}

Result<Files::Content> Files::findFor(std::uint32_t needs, const std::wstring& path, std::uint32_t share) const {
  if (hasFolder(path)) {
    return Failure{platform::kErrorAccessDenied};
  }
  if (!hasFolder(parentOf(path))) {
    return Failure{platform::kErrorPathNotFound};
  }
  const auto content = find(path);
  if (content == nullptr) {
    return Failure{platform::kErrorFileNotFound};
  }
  const bool collides = std::ranges::any_of(
      content->opens, [&](const OpenFile* open) { return (needs & ~open->share) != 0 || (open->needs & ~share) != 0; });
  return {!collides, content, collides ? platform::kErrorSharingViolation : 0};
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

std::wstring Files::descriptorOf(const std::wstring& folder) const {
  const Guard guard(kernel_.mutex);
  const auto found = descriptors_.find(keyOf(folder));
  return found == descriptors_.end() ? L"" : found->second;
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

Status Files::CreateDirectoryW(const std::wstring& path, NativeHandle descriptor) {
  return kernel_.call("CreateDirectoryW", [&]() -> Status {
    if (hasFolder(path) || find(path) != nullptr) {
      return Failure{platform::kErrorAlreadyExists};
    }
    if (!hasFolder(parentOf(path))) {
      return Failure{platform::kErrorPathNotFound};
    }
    const auto text = descriptor == nullptr ? nullptr : kernel_.get<DescriptorMemory>(descriptor, "CreateDirectoryW");
    entries_[keyOf(path)] = nullptr;
    descriptors_[keyOf(path)] = text == nullptr ? L"" : text->text;
    return kDone;
  });
}

Result<KernelHandle> Files::CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                        std::uint32_t disposition, std::uint32_t flagsAndAttributes) {
  return kernel_.call("CreateFileW", [&]() -> Result<KernelHandle> {
    if (const auto device = kernel_.devices.find(path); device != kernel_.devices.end()) {
      return kernel_.opened(device->second);
    }
    const std::uint32_t needs = neededBy(access, flagsAndAttributes);
    const auto old = findFor(needs, path, share);
    const bool missing = old.error == platform::kErrorFileNotFound;
    if (!old && !(missing && disposition != platform::kOpenExisting)) {
      return Failure{old.error};
    }
    if (!missing && disposition == platform::kCreateNew) {
      return Failure{kErrorFileExists};
    }
    auto file = std::make_shared<OpenFile>(*this, missing ? make(path) : old.value);
    file->needs = needs;
    file->share = share;
    file->appends = (access & platform::kFileAppendData) != 0;
    file->deleteOnClose = (flagsAndAttributes & platform::kFileFlagDeleteOnClose) != 0;
    const bool existed = !missing && disposition == platform::kOpenAlways;
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

Status Files::LockFileEx(NativeHandle handle, std::uint64_t offset) {
  return kernel_.callOn<OpenFile>("LockFileEx", handle, [&](OpenFile& file) -> Status {
    if ((file.needs & kReads) == 0 && (file.appends || (file.needs & kWrites) == 0)) {
      return Failure{platform::kErrorAccessDenied};
    }
    return file.content->locks.try_emplace(offset, &file).second ? kDone : Failure{platform::kErrorLockViolation};
  });
}

Status Files::UnlockFileEx(NativeHandle handle, std::uint64_t offset) {
  kernel_.faults.note("UnlockFileEx");  // a call that gives back cannot be failed
  const Guard guard(kernel_.mutex);
  const auto file = kernel_.get<OpenFile>(handle, "UnlockFileEx");
  if (file == nullptr) {
    return Failure{platform::kErrorInvalidHandle};
  }
  const auto lock = file->content->locks.find(offset);
  if (lock == file->content->locks.end() || lock->second != file.get()) {
    return Failure{kErrorNotLocked};
  }
  file->content->locks.erase(lock);
  return kDone;
}

Result<platform::FindHandle> Files::FindFirstFileW(const std::wstring& pattern, platform::FoundFile& found) {
  return kernel_.call("FindFirstFileW", [&]() -> Result<platform::FindHandle> {
    const std::wstring folder = parentOf(pattern);
    const std::wstring wanted = lowerCase(nameOf(pattern));
    if (!hasFolder(folder)) {
      return Failure{platform::kErrorPathNotFound};
    }
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
    if (!search->next(found)) {
      return Failure{platform::kErrorFileNotFound};
    }
    return kernel_.opened<platform::FindHandle>(search);
  });
}

Status Files::FindNextFileW(NativeHandle search, platform::FoundFile& found) {
  return kernel_.callOn<Search>("FindNextFileW", search, [&](Search& object) { return object.next(found); });
}

Status Files::FindClose(NativeHandle search) { return kernel_.close<Search>("FindClose", search); }

Status Files::MoveFileExW(const std::wstring& from, const std::wstring& to, std::uint32_t flags) {
  return kernel_.call("MoveFileExW", [&]() -> Status {
    const auto source = findFor(kDeletes, from);
    const auto target = findFor(kDeletes, to);
    const bool isFree = target.error == platform::kErrorFileNotFound;
    const bool replaces = (flags & platform::kMoveFileReplaceExisting) != 0;
    if (!source || target.error == platform::kErrorPathNotFound) {
      return Failure{source ? target.error : source.error};
    }
    if (!isFree && (!replaces || !target || !target.value->opens.empty())) {
      return Failure{replaces ? platform::kErrorAccessDenied : platform::kErrorAlreadyExists};
    }
    entries_.erase(keyOf(from));
    entries_[keyOf(to)] = source.value;
    source.value->name = nameOf(to);
    return kDone;
  });
}

Status Files::DeleteFileW(const std::wstring& path) {
  return kernel_.call("DeleteFileW", [&]() -> Status {
    const auto content = findFor(kDeletes, path);
    if (content) {
      entries_.erase(keyOf(path));
    }
    return {content.ok, content.error};
  });
}

Result<std::uint64_t> Files::GetDiskFreeSpaceExW(const std::wstring& folder) {
  return kernel_.call("GetDiskFreeSpaceExW", [&]() -> Result<std::uint64_t> {
    return hasFolder(folder) ? Result<std::uint64_t>{true, freeBytes, 0} : Failure{platform::kErrorPathNotFound};
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
    const auto content = findFor(kDeletes, wide);
    if (content.error == platform::kErrorSharingViolation) {
      return Failure{content.error};
    }
    return {entries_.erase(keyOf(wide)) != 0, 0};
  });
  error = removed.error != 0 ? systemError(removed.error) : std::error_code();
  return removed.ok;
}

}  // namespace sim
