#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <string>

#include "core/base/unicode.h"
#include "tests/sim/files.h"
#include "tests/sim/objects.h"

namespace bench {

/// Handles of real files begin here. Those of the simulation are smaller numbers.
inline constexpr std::uintptr_t kFirstRealHandle = std::uintptr_t{1} << 40;
inline bool isReal(platform::NativeHandle handle) {
  return handle != platform::invalidHandleValue() && reinterpret_cast<std::uintptr_t>(handle) >= kFirstRealHandle;
}
inline int fileNumberOf(platform::NativeHandle handle) {
  return static_cast<int>(reinterpret_cast<std::uintptr_t>(handle) - kFirstRealHandle);
}

/// The simulated file system, except for files that are opened for appending: these are real files below a folder, with
/// real locks.
class RealFiles : public sim::Files {
 public:
  RealFiles(sim::Kernel& kernel, std::filesystem::path folder) : sim::Files(kernel), folder_(std::move(folder)) {}

  platform::Status CreateDirectoryW(const std::wstring& path, platform::NativeHandle) override {
    std::error_code error;
    const bool made = std::filesystem::create_directories(realPath(path), error);
    return {made, made ? platform::kErrorSuccess : platform::kErrorAlreadyExists};
  }
  platform::Result<platform::KernelHandle> CreateFileW(const std::wstring& path, std::uint32_t access,
                                                       std::uint32_t share, std::uint32_t disposition,
                                                       std::uint32_t flags) override {
    if ((access & platform::kFileAppendData) == 0) {
      return sim::Files::CreateFileW(path, access, share, disposition, flags);
    }
    const int file = ::open(realPath(path).c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) {
      return {false, platform::KernelHandle(), platform::kErrorPathNotFound};
    }
    const std::uintptr_t value = kFirstRealHandle + static_cast<std::uintptr_t>(file);
    return {true, platform::KernelHandle(reinterpret_cast<platform::NativeHandle>(value)), 0};
  }
  platform::Result<std::uint32_t> WriteFile(platform::NativeHandle file, std::span<const std::byte> data) override {
    if (!isReal(file)) {
      return sim::Files::WriteFile(file, data);
    }
    const ssize_t written = ::write(fileNumberOf(file), data.data(), data.size());
    return written < 0 ? platform::Result<std::uint32_t>{false, 0, platform::kErrorDiskFull}
                       : platform::Result<std::uint32_t>{true, static_cast<std::uint32_t>(written), 0};
  }
  platform::Status LockFileEx(platform::NativeHandle file, std::uint64_t offset) override {
    return isReal(file) ? lock(file, F_WRLCK, offset) : sim::Files::LockFileEx(file, offset);
  }
  platform::Status UnlockFileEx(platform::NativeHandle file, std::uint64_t offset) override {
    return isReal(file) ? lock(file, F_UNLCK, offset) : sim::Files::UnlockFileEx(file, offset);
  }
  platform::Result<std::uint64_t> GetFileSizeEx(platform::NativeHandle file) override {
    struct stat status {};
    if (!isReal(file)) {
      return sim::Files::GetFileSizeEx(file);
    }
    const bool ok = ::fstat(fileNumberOf(file), &status) == 0;
    return {ok, static_cast<std::uint64_t>(status.st_size), ok ? platform::kErrorSuccess : 1};
  }

 private:
  std::filesystem::path realPath(const std::wstring& path) const {
    std::string name = CORE::toUtf8Lossy(path);
    for (char& character : name) {
      character = character == '\\' ? '/' : character == ':' ? '_' : character;
    }
    return folder_ / name;
  }
  /// Locks or unlocks one byte for this open file alone.
  static platform::Status lock(platform::NativeHandle file, int type, std::uint64_t offset) {
    struct flock range {};
    range.l_type = static_cast<short>(type);
    range.l_whence = SEEK_SET;
    range.l_start = static_cast<off_t>(offset);
    range.l_len = 1;
    const bool done = ::fcntl(fileNumberOf(file), F_OFD_SETLK, &range) == 0;
    return {done, done ? platform::kErrorSuccess : platform::kErrorLockViolation};
  }

  const std::filesystem::path folder_;
};

/// The simulated objects. CloseHandle also closes real files.
class RealObjects : public sim::Objects {
 public:
  using sim::Objects::Objects;
  platform::Status CloseHandle(platform::NativeHandle handle) override {
    return isReal(handle) ? platform::Status{::close(fileNumberOf(handle)) == 0, 0} : sim::Objects::CloseHandle(handle);
  }
};

}  // namespace bench
