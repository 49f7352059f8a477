#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/clock.h"

namespace CORE {

/// Most characters of a message.
inline constexpr std::size_t kMostMessageCharacters = 8192;

/// One log record, as its log call made it.
struct LogRecord {
  std::uint32_t level = 0;
  std::wstring label;  ///< the caller's own label; empty for the level's name
  std::wstring message;
  std::wstring context;         ///< the logging context of the thread
  platform::FileTime time = 0;  ///< GetSystemTimeAsFileTime at creation
  std::uint32_t tickCount = 0;  ///< GetTickCount at creation, milliseconds
  std::uint32_t threadId = 0;
};

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

/// The whole line of a record, with its line end.
std::wstring logLine(const LogRecord& record, const LineLayout& layout);

/// Overwrites every "vtx", in any case, with three asterisks. Linear in the length of the text.
void maskLegacyWord(std::wstring& text);

/// The bias now: 0 unless it is to be read; then "ActiveTimeBias" of the system, kUnknownBias when that cannot be read
/// or is no bias (more than a day).
std::int32_t currentBias(bool readFromRegistry);

}  // namespace CORE
