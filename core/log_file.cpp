#include "core/log_file.h"

#include <cstddef>
#include <span>

#include "core/format.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace CORE {
namespace {

std::wstring dateTimeText() {
  platform::Clock& clock = platform::current().clock;
  const platform::FileTime now = clock.GetSystemTimeAsFileTime();
  const auto local = clock.FileTimeToLocalFileTime(now);
  const platform::SystemTime t = clock.FileTimeToSystemTime(local ? local.value : now).value;
  return format(L"%04d-%02d-%02d-%02d%02d%02d", t.year, t.month, t.day, t.hour, t.minute, t.second);
}

/// Makes each folder above the file in turn; those that are there already only fail.
void createFoldersAbove(const std::wstring& path) {
  for (std::size_t at = path.find_first_of(L"\\/", 1); at != std::wstring::npos;
       at = path.find_first_of(L"\\/", at + 1)) {
    platform::current().files.CreateDirectoryW(path.substr(0, at));
  }
}

}  // namespace

void LogFile::makeFolder() const { createFoldersAbove(folder_); }

platform::Status LogFile::open() {
  platform::Files& files = platform::current().files;
  path_ = format(L"%s%s-%s%s", folder_, base_, dateTimeText(), L".txt");
  const auto attempt = [&] {
    return files.CreateFileW(path_, platform::kFileAppendData, platform::kFileShareAll, platform::kOpenAlways,
                             platform::kFileAttributeNormal);
  };
  auto file = attempt();
  if (!file && file.error == platform::kErrorPathNotFound) {
    createFoldersAbove(path_);
    file = attempt();
  }
  if (file) {
    file_ = std::move(file.value);
  }
  return {file.ok, file.error};
}

LogFile::Outcome LogFile::write(std::string_view lines) {
  if (!file_) {
    const platform::Status status = open();
    if (!status) {
      return {status, false};
    }
  }
  auto rest = std::as_bytes(std::span(lines));
  while (!rest.empty()) {
    const auto written = platform::current().files.WriteFile(file_.get(), rest);
    if (!written || written.value == 0) {
      return {{false, written.error}, true};
    }
    rest = rest.subspan(std::min<std::size_t>(written.value, rest.size()));
  }
  return {{true, platform::kErrorSuccess}, true};
}

}  // namespace CORE
