#include "core/log/log_banner.h"

#include <cstdint>

#include "core/base/unicode.h"
#include "core/files/program_version.h"
#include "core/format/format.h"
#include "core/log/log.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/system.h"

namespace CORE {

std::string LogBanner::lines(LineMaker& maker, LogRotation::Opened opened, bool first) const {
  std::string text;
  const auto add = [&](const std::wstring& message) { text += maker.line(makeLogRecord(kInfo, {}, message)); };
  if (opened == LogRotation::Opened::kNew) {
    add(format(L"Log for %s", program));
  } else if (opened == LogRotation::Opened::kExisting) {
    add(L"Opening latest existing log file");
  }
  if (first) {
    add(startedText(maker.layout().processId));
    const wchar_t* const state =
        debugEnabled ? L" ********** Debug log file is enabled for" : L" ********** Debug log file is disabled for";
    text += toUtf8Lossy(format(L"%s %s%s", state, program, L". **********\r\n"));
  }
  return text;
}

std::wstring LogBanner::startedText(std::uint32_t processId) const {
#ifdef NDEBUG
  constexpr wchar_t kBuildType[] = L"release";
#else
  constexpr wchar_t kBuildType[] = L"debug";
#endif
  const auto path = platform::current().system.GetModuleFileNameW();
  const std::wstring version = path ? ProgramVersion::of(path.value).version : std::wstring();
  const auto session = platform::current().processes.ProcessIdToSessionId(processId);
  return format(
      L"Program '%s' started, version=%s, pid=0x%X, buildtype=%s, usethread=%u, closeafterwrite=%u, sessionId=%d",
      program, version, processId, kBuildType, callerWrites ? 0 : 1, 0,
      session ? static_cast<std::int32_t>(session.value) : -1);
}

}  // namespace CORE
