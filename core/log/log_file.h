#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/handle.h"
#include "platform/result.h"

namespace CORE {

/// One log file, open for appending. Others may read, write and remove it meanwhile. Several processes may write to it
/// at once; between lock() and unlock() their lines do not mix. The owner's lock guards the object.
class LogFile {
 public:
  /// Opens the file of that path, or makes it. Makes the missing folders above it, too.
  platform::Status open(const std::wstring& path);
  void close() { file_.reset(); }
  bool isOpen() const { return static_cast<bool>(file_); }
  /// Returns the number of bytes in the file now; 0 when it cannot be found out.
  std::uint64_t size() const;

  /// Waits for the lock between processes, at most two seconds: a process that hangs while it holds the lock must not
  /// stop the others' logs. After that time, and on a volume without locks, the caller writes without the lock.
  /// \return the milliseconds waited.
  std::uint32_t lock();
  void unlock();

  /// Writes whole lines: with one call, unless the platform takes only a part of them.
  platform::Status write(std::string_view lines);

 private:
  platform::KernelHandle file_;
  bool locked_ = false;
};

}  // namespace CORE
