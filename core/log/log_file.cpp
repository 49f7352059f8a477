#include "core/log/log_file.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "core/files/protected_folder.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/processes.h"

namespace CORE {
namespace {

// The byte that processes lock lies where no log file reaches, because nobody else can read a locked byte.
constexpr std::uint64_t kLockOffset = 0x4000000000000000;
constexpr std::uint32_t kLockTimeout = 2000;  // milliseconds

}  // namespace

platform::Status LogFile::open(const std::wstring& path) {
  platform::Files& files = platform::current().files;
  const auto attempt = [&] {
    // LockFileEx needs the right to read.
    return files.CreateFileW(path, platform::kFileAppendData | platform::kFileReadData, platform::kFileShareAll,
                             platform::kOpenAlways, platform::kFileAttributeNormal);
  };
  auto file = attempt();
  if (!file && file.error == platform::kErrorPathNotFound) {
    makeProtectedFolder(path.substr(0, path.find_last_of(L"\\/")));
    file = attempt();
  }
  if (file) {
    file_ = std::move(file.value);
  }
  return {file.ok, file.error};
}

std::uint64_t LogFile::size() const {
  return isOpen() ? platform::current().files.GetFileSizeEx(file_.get()).value : 0;
}

std::uint32_t LogFile::lock() {
  const platform::Platform& platform = platform::current();
  std::uint32_t waited = 0;
  for (std::uint32_t startedAt = 0; isOpen(); platform.processes.Sleep(1)) {
    const platform::Status locked = platform.files.LockFileEx(file_.get(), kLockOffset);
    locked_ = locked.ok;
    if (locked_ || locked.error != platform::kErrorLockViolation) {
      break;  // without a lock: some network drives have none
    }
    const std::uint32_t now = platform.clock.GetTickCount();
    startedAt = startedAt == 0 ? now : startedAt;
    waited = now - startedAt;
    if (waited >= kLockTimeout) {
      break;
    }
  }
  return waited;
}

void LogFile::unlock() {
  if (locked_ && !platform::current().files.UnlockFileEx(file_.get(), kLockOffset)) {
    file_.reset();  // a closed file holds no lock
  }
  locked_ = false;
}

platform::Status LogFile::write(std::string_view lines) {
  auto rest = std::as_bytes(std::span(lines));
  while (!rest.empty()) {
    const auto written = platform::current().files.WriteFile(file_.get(), rest);
    if (!written || written.value == 0) {
      return {false, written.error};
    }
    rest = rest.subspan(std::min<std::size_t>(written.value, rest.size()));
  }
  return {true, platform::kErrorSuccess};
}

}  // namespace CORE
