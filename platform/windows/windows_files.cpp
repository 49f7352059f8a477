#include "platform/windows/windows_files.h"

#include <io.h>

#include <filesystem>
#include <optional>

#include "platform/windows/native.h"

namespace platform {

static_assert(kGenericRead == GENERIC_READ && kGenericWrite == GENERIC_WRITE && kDelete == DELETE);
static_assert(kFileReadData == FILE_READ_DATA && kFileAppendData == FILE_APPEND_DATA);
static_assert(kFileShareRead == FILE_SHARE_READ && kFileShareWrite == FILE_SHARE_WRITE);
static_assert(kFileShareDelete == FILE_SHARE_DELETE);
static_assert(kCreateNew == CREATE_NEW && kOpenExisting == OPEN_EXISTING && kOpenAlways == OPEN_ALWAYS);
static_assert(kFileAttributeNormal == FILE_ATTRIBUTE_NORMAL);
static_assert(kFileFlagSequentialScan == FILE_FLAG_SEQUENTIAL_SCAN);
static_assert(kFileFlagDeleteOnClose == FILE_FLAG_DELETE_ON_CLOSE);
static_assert(kMoveFileReplaceExisting == MOVEFILE_REPLACE_EXISTING);
static_assert(kMaxPathCharacters == UNICODE_STRING_MAX_CHARS);
static_assert(kErrorNoMoreFiles == ERROR_NO_MORE_FILES && kErrorSharingViolation == ERROR_SHARING_VIOLATION);
static_assert(kErrorLockViolation == ERROR_LOCK_VIOLATION && kErrorDiskFull == ERROR_DISK_FULL);
static_assert(kErrorBrokenPipe == ERROR_BROKEN_PIPE);

namespace {

/// Decodes a text by the process's ANSI code page. Returns nothing, with `error` set, when the bytes are not valid in
/// it.
std::optional<std::wstring> decodeAnsi(const std::string& text, std::error_code& error) {
  if (text.empty()) {
    return std::wstring();
  }
  const int size = fitsDword(text.size()) ? static_cast<int>(text.size()) : 0;
  const int needed = ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
  if (needed <= 0) {
    error.assign(static_cast<int>(::GetLastError()), std::system_category());
    return std::nullopt;
  }
  std::wstring wide(static_cast<std::size_t>(needed), L'\0');
  ::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(), needed);
  return wide;
}

std::uint64_t join(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

OVERLAPPED at(std::uint64_t offset) {
  OVERLAPPED place{};
  place.Offset = static_cast<DWORD>(offset);
  place.OffsetHigh = static_cast<DWORD>(offset >> 32);
  return place;
}

FoundFile foundOf(const WIN32_FIND_DATAW& data) {
  return {data.cFileName, join(data.nFileSizeHigh, data.nFileSizeLow),
          (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0};
}

}  // namespace

int WindowsFiles::_waccess(const std::wstring& path, int mode) { return ::_waccess(path.c_str(), mode); }

Status WindowsFiles::CreateDirectoryW(const std::wstring& path, NativeHandle descriptor) {
  SECURITY_ATTRIBUTES attributes{};
  attributes.nLength = sizeof(attributes);
  attributes.lpSecurityDescriptor = descriptor;
  return statusOf(::CreateDirectoryW(path.c_str(), descriptor != nullptr ? &attributes : nullptr));
}

Result<KernelHandle> WindowsFiles::CreateFileW(const std::wstring& path, std::uint32_t access, std::uint32_t share,
                                               std::uint32_t disposition, std::uint32_t flagsAndAttributes) {
  const HANDLE file = ::CreateFileW(path.c_str(), access, share, nullptr, disposition, flagsAndAttributes, nullptr);
  const ErrorCode error = ::GetLastError();
  return {file != invalidHandleValue(), KernelHandle(file), error};
}

Result<std::uint32_t> WindowsFiles::ReadFile(NativeHandle file, std::span<std::byte> buffer) {
  DWORD read = 0;
  const BOOL done = ::ReadFile(file, buffer.data(), atMostDword(buffer.size()), &read, nullptr);
  return resultOf(done, std::uint32_t{read});
}

Result<std::uint32_t> WindowsFiles::WriteFile(NativeHandle file, std::span<const std::byte> data) {
  DWORD written = 0;
  const BOOL done = ::WriteFile(file, data.data(), atMostDword(data.size()), &written, nullptr);
  return resultOf(done, std::uint32_t{written});
}

Status WindowsFiles::LockFileEx(NativeHandle file, std::uint64_t offset) {
  OVERLAPPED place = at(offset);
  return statusOf(::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place));
}

Status WindowsFiles::UnlockFileEx(NativeHandle file, std::uint64_t offset) {
  OVERLAPPED place = at(offset);
  return statusOf(::UnlockFileEx(file, 0, 1, 0, &place));
}

Result<std::uint64_t> WindowsFiles::GetFileSizeEx(NativeHandle file) {
  LARGE_INTEGER size{};
  const BOOL done = ::GetFileSizeEx(file, &size);
  return resultOf(done, static_cast<std::uint64_t>(size.QuadPart));
}

Result<FindHandle> WindowsFiles::FindFirstFileW(const std::wstring& pattern, FoundFile& found) {
  WIN32_FIND_DATAW data{};
  const HANDLE search = ::FindFirstFileW(pattern.c_str(), &data);
  const ErrorCode error = ::GetLastError();
  const bool ok = search != invalidHandleValue();
  if (ok) {
    found = foundOf(data);
  }
  return {ok, FindHandle(search), error};
}

Status WindowsFiles::FindNextFileW(NativeHandle search, FoundFile& found) {
  WIN32_FIND_DATAW data{};
  const Status status = statusOf(::FindNextFileW(search, &data));
  if (status) {
    found = foundOf(data);
  }
  return status;
}

Status WindowsFiles::FindClose(NativeHandle search) { return statusOf(::FindClose(search)); }

Status WindowsFiles::MoveFileExW(const std::wstring& from, const std::wstring& to, std::uint32_t flags) {
  return statusOf(::MoveFileExW(from.c_str(), to.c_str(), flags));
}

Status WindowsFiles::DeleteFileW(const std::wstring& path) { return statusOf(::DeleteFileW(path.c_str())); }

Result<std::uint64_t> WindowsFiles::GetDiskFreeSpaceExW(const std::wstring& folder) {
  ULARGE_INTEGER available{};
  const BOOL read = ::GetDiskFreeSpaceExW(folder.c_str(), &available, nullptr, nullptr);
  return resultOf(read, std::uint64_t{available.QuadPart});
}

std::uintmax_t WindowsFiles::file_size(const std::wstring& path, std::error_code& error) {
  return std::filesystem::file_size(std::filesystem::path(path), error);
}

bool WindowsFiles::remove(const std::string& path, std::error_code& error) {
  // The path is decoded here because the file-system libraries disagree about a narrow one: some decode it as ANSI,
  // others widen its bytes.
  const std::optional<std::wstring> wide = decodeAnsi(path, error);
  return wide && std::filesystem::remove(std::filesystem::path(*wide), error);
}

}  // namespace platform
