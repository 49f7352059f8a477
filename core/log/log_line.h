#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/log/record_buffer.h"
#include "platform/clock.h"

namespace CORE {

/// The time-zone bias that stands for "no bias is known".
inline constexpr std::int32_t kUnknownBias = 8888;

/// What the lines of one process have in common.
struct LineLayout {
  std::uint32_t processId = 0;
  std::wstring processIdText;  ///< the process id as the line shows it, unless ids are truncated
  std::wstring component;      ///< name of the process
  bool truncateIds = false;
  bool maskLegacyWord = true;
  /// Minutes: UTC = local time + bias. 0 takes the platform's local time. kUnknownBias shows UTC.
  std::int32_t bias = 0;
};

/// Returns the name of a level, five characters wide; "UNKNOWN" for any other number.
std::wstring_view levelName(std::uint32_t level);

/// Returns the time stamp of a record, ISO 8601 with milliseconds: local time with its offset, or with "Z" when the
/// offset is 0. With kUnknownBias it is the time of the call in UTC, not that of the record.
std::wstring timeStamp(platform::FileTime time, std::int32_t bias);

/// Returns the bias that holds now, in minutes.
/// \param readFromRegistry  reads kActiveTimeBias; without it the bias is 0.
/// \return kUnknownBias when the value cannot be read, or is more than a day and so no bias.
std::int32_t currentBias(bool readFromRegistry);

/// Turns records into lines. It keeps the parts that the next line may have in common with this one: the second, the
/// ids, the component. The owner's lock guards the object.
class LineMaker {
 public:
  LineMaker() = default;
  explicit LineMaker(LineLayout layout);

  void setBias(std::int32_t bias);
  const LineLayout& layout() const { return layout_; }
  /// Appends the whole line of a record, with its line end, as UTF-8.
  void append(const BufferedRecord& record, std::string& out);
  /// Returns the line of a record that was never queued.
  std::string line(const LogRecord& record);

 private:
  std::string_view stamp(platform::FileTime time);
  std::string_view ids(std::uint32_t threadId);

  LineLayout layout_;
  std::string component_;  ///< the component with everything that stands between context and message
  std::string stamp_;      ///< the latest stamp, of the second stampSecond_; its milliseconds are overwritten
  platform::FileTime stampSecond_ = 0;
  std::string ids_;  ///< the latest ids, of the thread idsThread_
  std::uint32_t idsThread_ = 0;
};

}  // namespace CORE
