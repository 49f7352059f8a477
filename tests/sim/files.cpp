// The platform's calls on the simulated files.
#include "core/base/unicode.h"
#include "tests/sim/file_handles.h"
#include "tests/sim/security.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

constexpr ErrorCode kErrorFileExists = 80;
constexpr ErrorCode kErrorDirectoryNotEmpty = 145;
constexpr ErrorCode kErrorNotLocked = 158;

/// Returns what an opening needs the others to share: bits of FILE_SHARE_...
std::uint32_t neededBy(std::uint32_t access, std::uint32_t flags) {
  const bool reads = (access & (kGenericRead | kFileReadData)) != 0;
  const bool writes = (access & (kGenericWrite | kFileAppendData)) != 0;
  const bool deletes = (access & kDelete) != 0 || (flags & kFileFlagDeleteOnClose) != 0;
  return (reads ? kFileShareRead : 0) | (writes ? kFileShareWrite : 0) | (deletes ? kFileShareDelete : 0);
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

struct Files::Search : Object {
  const char* kind() const override { return "search"; }
  std::vector<FoundFile> found;
  std::size_t at = 0;
};

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
    refuseIf((file.needs & kFileShareRead) == 0 && file.appends, kErrorAccessDenied);
    refuseIf(!file.content->locks.try_emplace(offset, &file).second, kErrorLockViolation);
  });
}

Status Files::UnlockFileEx(NativeHandle handle, std::uint64_t offset) {
  kernel_.faults.note(__func__);  // a test cannot make a call fail that releases something
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
    const auto source = findFor(kFileShareDelete, from);
    const auto target = findFor(kFileShareDelete, to);
    refuseIf(source == nullptr, kErrorFileNotFound);
    refuseIf(target != nullptr && (flags & kMoveFileReplaceExisting) == 0, kErrorAlreadyExists);
    entries_.erase(keyOf(from));
    entries_[keyOf(to)] = source;
    source->name = nameOf(to);
  });
}

Status Files::DeleteFileW(const std::wstring& path) {
  return kernel_.call(__func__, [&] {
    refuseIf(findFor(kFileShareDelete, path) == nullptr, kErrorFileNotFound);
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
  if (removeErrno != 0) {
    error.assign(removeErrno, std::generic_category());
    return false;
  }
  const auto removed = kernel_.call(__func__, [&] {
    std::wstring wide = CORE::toWideLossy(path);
    if (ansiIsLatin1) {
      wide.resize(path.size());
      std::ranges::transform(path, wide.begin(), [](char byte) { return static_cast<unsigned char>(byte); });
    }
    refuseIf(hasFolder(wide) && !below(wide).empty(), kErrorDirectoryNotEmpty);
    if (find(wide) != nullptr) {
      findFor(kFileShareDelete, wide);
    }
    return entries_.erase(keyOf(wide)) != 0;
  });
  error = removed.ok ? std::error_code() : systemError(removed.error);
  return removed.ok && removed.value;
}

}  // namespace sim
