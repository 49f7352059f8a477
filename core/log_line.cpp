#include "core/log_line.h"

#include <cstdlib>

#include "core/configuration.h"
#include "core/format.h"
#include "core/number_text.h"
#include "platform/platform.h"

namespace CORE {
namespace {

constexpr std::int64_t kStepsPerMinute = 600'000'000;  // FILETIME counts 100 ns
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
  // kept: blanks behind INFO and WARN keep the width.
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

std::wstring logLine(const LogRecord& record, const LineLayout& layout) {
  std::wstring line = timeStamp(record.time, layout.bias);
  line.append(L" ").append(record.label.empty() ? levelName(record.level) : std::wstring_view(record.label));
  if (layout.truncateIds) {
    line += format(L" (%04X-%04X)", layout.processId & 0xFFFFU, record.threadId & 0xFFFFU);
  } else {
    line.append(L" (").append(layout.processIdText);
    line += record.threadId <= 0xFFFFU ? format(L"-%04X)", record.threadId) : format(L"-%X)", record.threadId);
  }
  line.append(L" <").append(record.context).append(L"> [").append(layout.component).append(L"] ");
  line.append(record.message).append(L"\r\n");
  if (layout.maskLegacyWord) {
    maskLegacyWord(line);
  }
  return line;
}

void maskLegacyWord(std::wstring& text) {
  // ASCII is enough: no other character has one of these letters as its lower case.
  const auto is = [&text](std::size_t at, wchar_t small) { return (text[at] | 0x20) == small; };
  for (std::size_t at = 0; at + 3 <= text.size(); ++at) {
    if (is(at, L'v') && is(at + 1, L't') && is(at + 2, L'x')) {
      text.replace(at, 3, 3, L'*');
      at += 2;
    }
  }
}

std::int32_t currentBias(bool readFromRegistry) {
  if (!readFromRegistry) {
    return 0;
  }
  std::wstring text;
  const std::uint32_t type = readPath(L"HKLM\\SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation\\ActiveTimeBias",
                                      platform::kRegDword, false, text);
  if (type == kNotFound) {
    return kUnknownBias;
  }
  const auto bias = static_cast<std::int32_t>(textToUint32(text));  // a DWORD that may be negative
  return bias < -kMinutesPerDay || bias > kMinutesPerDay ? kUnknownBias : bias;
}

}  // namespace CORE
