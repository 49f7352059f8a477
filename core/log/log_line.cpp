#include "core/log/log_line.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "core/base/unicode.h"
#include "core/format/format.h"
#include "core/redaction/legacy_word.h"
#include "core/settings/registry_value.h"
#include "core/settings/setting_names.h"
#include "core/text/number_text.h"
#include "platform/platform.h"

namespace CORE {
namespace {

constexpr auto kStepsPerMinute = static_cast<std::int64_t>(platform::kFileTimePerMinute);
constexpr std::size_t kMillisecondsAt = 20;  // position in a stamp
constexpr std::int64_t kMinutesPerDay = 1440;

std::wstring utcStamp(const platform::SystemTime& t) {
  return format(L"%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", t.year, t.month, t.day, t.hour, t.minute, t.second,
                t.milliseconds);
}

struct LocalTime {
  platform::FileTime time;
  std::int64_t offsetMinutes;  ///< local time minus UTC
};

LocalTime localTime(platform::FileTime time, std::int32_t bias) {
  if (bias != 0) {
    const std::int64_t minutes = bias;
    return {static_cast<platform::FileTime>(static_cast<std::int64_t>(time) - minutes * kStepsPerMinute), -minutes};
  }
  const auto local = platform::current().clock.FileTimeToLocalFileTime(time);
  if (!local) {
    return {time, 0};
  }
  const auto difference = static_cast<std::int64_t>(local.value) - static_cast<std::int64_t>(time);
  return {local.value, difference / kStepsPerMinute};
}

}  // namespace

std::wstring_view levelName(std::uint32_t level) {
  // kept: the blanks behind INFO and WARN keep the width.
  constexpr std::wstring_view kNames[] = {L"TRACE", L"DEBUG", L"INFO ", L"WARN ", L"ERROR", L"FATAL"};
  return level < std::size(kNames) ? kNames[level] : L"UNKNOWN";
}

std::wstring timeStamp(platform::FileTime time, std::int32_t bias) {
  platform::Clock& clock = platform::current().clock;
  if (bias == kUnknownBias) {
    return utcStamp(clock.GetSystemTime());  // kept: the present, not the record's time
  }
  const LocalTime local = localTime(time, bias);
  const platform::SystemTime t = clock.FileTimeToSystemTime(local.time).value;
  if (local.offsetMinutes == 0) {
    return utcStamp(t);
  }
  const std::int64_t offset = std::abs(local.offsetMinutes);
  return format(L"%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02d:%02d", t.year, t.month, t.day, t.hour, t.minute, t.second,
                t.milliseconds, local.offsetMinutes < 0 ? L'-' : L'+', offset / 60, offset % 60);
}

std::int32_t currentBias(bool readFromRegistry) {
  if (!readFromRegistry) {
    return 0;
  }
  std::wstring text;
  if (readPath(kActiveTimeBias.path, platform::kRegDword, false, text) == kNotFound) {
    return kUnknownBias;
  }
  const auto bias = static_cast<std::int32_t>(textToUint32(text));  // a DWORD that may be negative
  return bias < -kMinutesPerDay || bias > kMinutesPerDay ? kUnknownBias : bias;
}

LineMaker::LineMaker(LineLayout layout)
    : layout_(std::move(layout)), component_(toUtf8Lossy(L"> [" + layout_.component + L"] ")) {}

void LineMaker::setBias(std::int32_t bias) {
  layout_.bias = bias;
  stamp_.clear();
}

std::string_view LineMaker::stamp(platform::FileTime time) {
  const platform::FileTime second = time / platform::kFileTimePerSecond;
  if (stamp_.empty() || second != stampSecond_ || layout_.bias == kUnknownBias) {
    stamp_ = toUtf8Lossy(timeStamp(time, layout_.bias)) + ' ';
    stampSecond_ = second;
  }
  // Offsets are whole minutes, so within a second only the milliseconds differ.
  const auto milliseconds = static_cast<std::uint32_t>(time / platform::kFileTimePerMillisecond % 1000);
  if (layout_.bias != kUnknownBias) {
    stamp_[kMillisecondsAt] = static_cast<char>('0' + milliseconds / 100);
    stamp_[kMillisecondsAt + 1] = static_cast<char>('0' + milliseconds / 10 % 10);
    stamp_[kMillisecondsAt + 2] = static_cast<char>('0' + milliseconds % 10);
  }
  return stamp_;
}

std::string_view LineMaker::ids(std::uint32_t threadId) {
  if (ids_.empty() || threadId != idsThread_) {
    idsThread_ = threadId;
    ids_ = layout_.truncateIds   ? formatNarrow(" (%04X-%04X) <", layout_.processId & 0xFFFFU, threadId & 0xFFFFU)
           : threadId <= 0xFFFFU ? formatNarrow(" (%S-%04X) <", layout_.processIdText, threadId)
                                 : formatNarrow(" (%S-%X) <", layout_.processIdText, threadId);
  }
  return ids_;
}

void LineMaker::append(const BufferedRecord& record, std::string& out) {
  const std::size_t begin = out.size();
  out.append(stamp(record.time));
  if (record.label.empty()) {
    appendUtf8Lossy(out, levelName(record.level));
  }
  out.append(record.label).append(ids(record.threadId)).append(record.context).append(component_);
  out.append(record.message).append("\r\n");
  if (layout_.maskLegacyWord) {
    maskLegacyWord(out, begin);
  }
}

std::string LineMaker::line(const LogRecord& record) {
  RecordBuffer one;
  one.add(record);
  std::string out;
  append(one.at(0), out);
  return out;
}

}  // namespace CORE
