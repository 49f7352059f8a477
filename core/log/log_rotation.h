#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/log/log_file.h"

namespace CORE {

/// Rotation: the log files of one base name in one folder, "<base>-YYYY-MM-DD-HHMMSS.txt" by the local time at which
/// they were begun.
///
/// A process continues the newest file of the day. It begins a new file on another day, and when the file would grow
/// beyond the size limit. With each file that it opens it removes the files beyond the number to keep and those that
/// are too old. A file is never renamed, and never removed while any process has it open. The owner's lock guards the
/// object.
class LogRotation {
 public:
  struct Limits {
    std::uint32_t maxFiles = 0;  ///< files that are kept, the one in use included
    std::uint32_t maxDays = 0;   ///< days for which a file is kept after it was begun
    std::uint64_t maxBytes = 0;  ///< bytes of one file; 0: no limit
  };

  /// What prepare() opened.
  enum class Opened {
    kNothing,   ///< the file was open and stays in use
    kExisting,  ///< a file that existed
    kNew,
    kFailed,
  };

  LogRotation() = default;
  /// \param folder  with its separator at the end.
  LogRotation(std::wstring folder, std::wstring base, const Limits& limits)
      : folder_(std::move(folder)), base_(std::move(base)), limits_(limits) {}

  /// Makes sure that the right file is open for that many more bytes. After a failure the next call tries again.
  /// \param ticks  now, in milliseconds; the day is checked once a second.
  /// \param status  receives the error of a failed opening; it keeps its value unless the result is kFailed.
  Opened prepare(std::size_t bytes, std::uint32_t ticks, platform::Status& status);
  /// The file that prepare() opened.
  LogFile& file() { return file_; }
  /// The path of that file, or of the latest one that could not be opened. Empty before the first prepare().
  const std::wstring& path() const { return path_; }

  /// Returns the path of the newest file of that day ("YYYY-MM-DD"); empty when there is none.
  std::wstring selectDateTimeLog(std::wstring_view day) const;

 private:
  std::vector<std::wstring> dateTimes() const;
  std::wstring pathOf(std::wstring_view dateTime) const;
  bool isFull(std::size_t bytes) const;
  void removeOld() const;

  std::wstring folder_;
  std::wstring base_;
  Limits limits_;
  std::wstring path_;
  LogFile file_;
  std::uint32_t checkedAt_ = 0;  ///< ticks
};

}  // namespace CORE
