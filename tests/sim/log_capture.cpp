#include "tests/sim/log_capture.h"

#include <algorithm>

#include "core/convert.h"
#include "core/log_line.h"

namespace sim {
namespace {

constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr std::uint32_t kUnknownLevel = 6;

/// Whether a record begins here: a message may have lines of its own, but none that begins with a time stamp.
bool beginsRecord(std::wstring_view text) {
  constexpr std::wstring_view kPattern = L"0000-00-00T00:00:00.000";
  if (text.size() <= kPattern.size()) {
    return false;
  }
  return std::equal(kPattern.begin(), kPattern.end(), text.begin(),
                    [](wchar_t pattern, wchar_t c) { return pattern == L'0' ? c >= L'0' && c <= L'9' : c == pattern; });
}

LogLine parseRecord(std::wstring_view text) {
  const std::wstring_view rest = text.substr(text.find(L' ') + 1);
  std::uint32_t level = 0;
  while (level < kUnknownLevel && !rest.starts_with(CORE::levelName(level))) {
    ++level;
  }
  const std::size_t component = rest.find(L"> [");
  const std::size_t end = rest.find(L"] ", component);
  return {static_cast<CORE::LogLevel>(level), std::wstring(end == rest.npos ? rest : rest.substr(end + 2))};
}

}  // namespace

std::vector<LogLine> parseLog(std::wstring_view text) {
  std::vector<LogLine> out;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(kLineEnd), text.size());
    const std::wstring_view line = text.substr(0, end);
    if (beginsRecord(line)) {
      out.push_back(parseRecord(line));
    } else if (!out.empty()) {
      out.back().message.append(kLineEnd).append(line);
    }
    text.remove_prefix(std::min(end + kLineEnd.size(), text.size()));
  }
  return out;
}

LogCapture::LogCapture(Windows& windows) : windows_(windows) {
  const std::wstring key = L"HKLM\\Software\\Calvera\\Meridon\\Log\\";
  windows_.registry.set(key + L"traceEnabled", L"true");
  windows_.registry.set(key + L"LogFileDirectory", kFolder);
  CORE::corelogger::instance().start(L"test", CORE::corelogger::Writer::kCaller);
  CORE::log(CORE::kInfo, L"LogCapture opens the files");
  clear();
}

LogCapture::~LogCapture() { CORE::corelogger::instance().stop(); }

std::vector<LogLine> LogCapture::all() const {
  CORE::corelogger::instance().flush();
  std::vector<LogLine> out;
  for (const std::wstring& path : windows_.files.list(kFolder)) {
    if (path.find(L"\\debug-") != std::wstring::npos) {
      const auto lines = parseLog(CORE::toWideLossy(windows_.files.read(path)));
      out.insert(out.end(), lines.begin(), lines.end());
    }
  }
  return out;
}

std::vector<LogLine> LogCapture::lines() const {
  std::vector<LogLine> out = all();
  out.erase(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(std::min(first_, out.size())));
  return out;
}

bool LogCapture::has(CORE::LogLevel level, std::wstring_view text) const {
  const auto found = lines();
  return std::any_of(found.begin(), found.end(), [&](const LogLine& line) {
    return line.level == level && line.message.find(text) != std::wstring::npos;
  });
}

std::size_t LogCapture::count(std::wstring_view text) const {
  const auto found = lines();
  return static_cast<std::size_t>(std::count_if(
      found.begin(), found.end(), [&](const LogLine& line) { return line.message.find(text) != std::wstring::npos; }));
}

std::string LogCapture::text() const {
  std::string out;
  for (const LogLine& line : lines()) {
    out += CORE::toUtf8Lossy(CORE::levelName(line.level)) + " " + CORE::toUtf8Lossy(line.message) + "\n";
  }
  return out;
}

void LogCapture::clear() { first_ = all().size(); }

}  // namespace sim
