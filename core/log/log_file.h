#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/handle.h"
#include "platform/result.h"

namespace CORE {

/// One log file, open for appending. Others may read, write and remove it meanwhile, and several processes may write to
/// it at once: writing() takes turns between them. Guarded by its owner.
class LogFile {
 public:
  /// Opens the file of that path, or makes it, with every folder above it that is missing.
  platform::Status open(const std::wstring& path);
  void close() { file_.reset(); }
  bool isOpen() const { return static_cast<bool>(file_); }
  /// Bytes in the file now; 0 when that cannot be told.
  std::uint64_t size() const;

  /// Waits for this process's turn, at most two seconds: a process that hangs with its turn holds up nobody for ever.
  /// Gives the milliseconds waited.
  std::uint32_t lock();
  void unlock();

  /// Writes whole lines with one call, as long as the platform takes them so.
  platform::Status write(std::string_view lines);

 private:
  platform::KernelHandle file_;
  bool locked_ = false;
};

}  // namespace CORE
