#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/log/record_buffer.h"
#include "platform/clock.h"

namespace CORE {

/// A time-zone bias that nobody knows.
inline constexpr std::int32_t kUnknownBias = 8888;

/// What the lines of one process have in common.
struct LineLayout {
  std::uint32_t processId = 0;
  std::wstring processIdText;  ///< stands in the line unless ids are truncated
  std::wstring component;
  bool truncateIds = false;
  bool maskLegacyWord = true;
  std::int32_t bias = 0;  ///< minutes: UTC = local time + bias; 0: the platform's local time; or kUnknownBias
};

/// The name of a level, five characters wide; "UNKNOWN" for any other number.
std::wstring_view levelName(std::uint32_t level);

/// The time stamp of a record, ISO 8601 with milliseconds: local time with its offset, with "Z" when that is 0. With
/// kUnknownBias it is the time of the call, not the record's, in UTC.
std::wstring timeStamp(platform::FileTime time, std::int32_t bias);

/// The bias now: 0 unless it is to be read; then "ActiveTimeBias" of the system, kUnknownBias when that cannot be read
/// or is no bias (more than a day).
std::int32_t currentBias(bool readFromRegistry);

/// Makes lines of records; what one line has in common with the line before is not made again. Guarded by its owner.
class LineMaker {
 public:
  LineMaker() = default;
  explicit LineMaker(LineLayout layout);

  void setBias(std::int32_t bias);
  const LineLayout& layout() const { return layout_; }
  /// Appends the whole line of a record, with its line end.
  void append(const BufferedRecord& record, std::string& out);
  /// The same of a record that did not wait.
  std::string line(const LogRecord& record);

 private:
  std::string_view stamp(platform::FileTime time);
  std::string_view ids(std::uint32_t threadId);

  LineLayout layout_;
  std::string component_;  ///< with all that stands between context and message
  std::string stamp_;      ///< of the second stampSecond_
  platform::FileTime stampSecond_ = 0;
  std::string ids_;  ///< of the thread idsThread_
  std::uint32_t idsThread_ = 0;
};

}  // namespace CORE
