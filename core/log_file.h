#pragma once

#include <string>
#include <string_view>

#include "platform/handle.h"
#include "platform/result.h"

namespace CORE {

/// One log file, made at its first write as folder + base + "-YYYY-MM-DD-HHMMSS.txt" (local time), and every folder
/// above it that is missing. Others may read, write and remove it meanwhile; every write goes to its end. A file that
/// cannot be opened is tried again at the next write. Guarded by its owner.
class LogFile {
 public:
  /// What happened to a write.
  struct Outcome {
    platform::Status status;
    bool opened = false;  ///< the file is open; when false, `status` is that of opening it
  };

  LogFile() = default;
  /// \param folder  with its separator at the end.
  LogFile(std::wstring folder, std::wstring base) : folder_(std::move(folder)), base_(std::move(base)) {}

  /// Makes the folder, and every one above it that is missing. A failure shows at the first write.
  void makeFolder() const;

  /// Writes whole lines with one call, as long as the platform takes them so.
  Outcome write(std::string_view lines);
  void close() { file_.reset(); }
  bool isOpen() const { return static_cast<bool>(file_); }
  /// The name of the latest attempt to open; empty before.
  const std::wstring& path() const { return path_; }

 private:
  platform::Status open();

  std::wstring folder_;
  std::wstring base_;
  std::wstring path_;
  platform::KernelHandle file_;
};

}  // namespace CORE
