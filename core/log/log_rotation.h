#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/log/log_file.h"

namespace CORE {

/// The log files of one base name in one folder, "<base>-YYYY-MM-DD-HHMMSS.txt" by the local time they were begun at.
///
/// A process goes on in the newest file of the day. A new file is begun when the day is another one, or when the file
/// would grow beyond the limit; then the files beyond the number to keep, and those of too long ago, are removed. A
/// file is never renamed, and never removed while anybody has it open. Guarded by its owner.
class LogRotation {
 public:
  struct Limits {
    std::uint32_t maxFiles = 0;  ///< kept, the one in use included
    std::uint32_t maxDays = 0;   ///< kept after they were begun
    std::uint64_t maxBytes = 0;  ///< of one file; 0: no limit
  };

  /// What prepare() did.
  enum class Opened {
    kNothing,   ///< the file was open, and stays in use
    kExisting,  ///< a file that was there already
    kNew,
    kFailed,
  };

  LogRotation() = default;
  /// \param folder  with its separator at the end.
  LogRotation(std::wstring folder, std::wstring base, const Limits& limits)
      : folder_(std::move(folder)), base_(std::move(base)), limits_(limits) {}

  /// Sees to it that the right file is open for that many more bytes. A failure is tried again at the next call.
  /// \param ticks  now, in milliseconds; the day is looked at once a second
  /// \param status  of opening it; untouched unless the result is kFailed.
  Opened prepare(std::size_t bytes, std::uint32_t ticks, platform::Status& status);
  /// The file that prepare() opened.
  LogFile& file() { return file_; }
  /// Its name; of the latest attempt when that failed. Empty before the first one.
  const std::wstring& path() const { return path_; }

  /// The newest file of that day ("YYYY-MM-DD"), with its folder; empty when there is none.
  std::wstring selectDateTimeLog(std::wstring_view day) const;

 private:
  std::vector<std::wstring> names() const;
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
