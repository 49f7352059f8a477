#include "core/files/file_stream.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/files.h"
#include "platform/platform.h"

namespace CORE {
namespace {

constexpr std::size_t kMaxRead = std::size_t{1} << 30;  // bytes of one ReadFile, which counts them in 32 bits

}  // namespace

platform::Status FileStream::open(const std::wstring& path) {
  auto opened = platform::current().files.CreateFileW(path, platform::kGenericRead, platform::kFileShareAll,
                                                      platform::kOpenExisting, platform::kFileFlagSequentialScan);
  failed_ = false;
  file_.reset(opened ? opened.value.release() : nullptr);
  return {isOpen(), opened.error};
}

void FileStream::close() { file_.reset(); }

std::size_t FileStream::read(std::span<std::byte> buffer) {
  std::size_t total = 0;
  while (good() && total < buffer.size()) {
    const auto rest = buffer.subspan(total);
    const auto got = platform::current().files.ReadFile(file_.get(), rest.first(std::min(rest.size(), kMaxRead)));
    total += got ? got.value : 0;
    failed_ = !got || got.value == 0;
  }
  return total;
}

std::uint64_t fileSize(const std::wstring& path) {
  std::error_code error;
  const std::uintmax_t size = platform::current().files.file_size(path, error);
  if (error) {
    throw std::filesystem::filesystem_error("file_size", path, error);
  }
  return size;
}

}  // namespace CORE
