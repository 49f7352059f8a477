#include "tests/sim/log_capture.h"

#include <algorithm>

#include "core/base/unicode.h"
#include "core/log/log_line.h"

namespace sim {
namespace {

constexpr std::wstring_view kLineEnd = L"\r\n";
constexpr std::uint32_t kUnknownLevel = 6;

/// Whether the line begins a record. A message may have several lines, but none of the others begins with a time stamp.
bool beginsRecord(std::wstring_view line) {
  constexpr std::wstring_view kStamp = L"0000-00-00T00:00:00.000";
  return line.size() > kStamp.size() &&
         std::equal(kStamp.begin(), kStamp.end(), line.begin(),
                    [](wchar_t c, wchar_t at) { return c == L'0' ? at >= L'0' && at <= L'9' : at == c; });
}

LogLine parseRecord(std::wstring_view text) {
  text.remove_prefix(text.find(L' ') + 1);
  std::uint32_t level = 0;
  while (level < kUnknownLevel && !text.starts_with(CORE::levelName(level))) {
    ++level;
  }
  text.remove_prefix(text.find(L"] ", text.find(L"> [")) + 2);
  return {static_cast<CORE::LogLevel>(level), std::wstring(text)};
}

}  // namespace

std::vector<LogLine> parseLog(std::wstring_view text) {
  std::vector<LogLine> out;
  while (!text.empty()) {
    const std::wstring_view line = text.substr(0, text.find(kLineEnd));
    if (beginsRecord(line)) {
      out.push_back(parseRecord(line));
    } else if (!out.empty()) {
      out.back().message.append(kLineEnd).append(line);
    }
    text.remove_prefix(std::min(line.size() + kLineEnd.size(), text.size()));
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

std::vector<LogLine> LogCapture::lines() const {
  CORE::corelogger::instance().flush();
  std::vector<LogLine> out;
  for (const std::wstring& path : windows_.files.list(kFolder)) {
    if (path.find(L"\\debug-") != std::wstring::npos) {
      const auto lines = parseLog(CORE::toWideLossy(windows_.files.read(path)));
      out.insert(out.end(), lines.begin(), lines.end());
    }
  }
  out.erase(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(std::min(forgotten_, out.size())));
  return out;
}

bool LogCapture::has(CORE::LogLevel level, std::wstring_view text) const {
  return std::ranges::any_of(messages(level), [&](const auto& message) { return message.find(text) != message.npos; });
}

std::size_t LogCapture::count(std::wstring_view text) const {
  const auto contains = [&](const LogLine& line) { return line.message.find(text) != line.message.npos; };
  return static_cast<std::size_t>(std::ranges::count_if(lines(), contains));
}

std::vector<std::wstring> LogCapture::messages(CORE::LogLevel level) const {
  std::vector<std::wstring> out;
  for (const LogLine& line : lines()) {
    if (line.level == level) {
      out.push_back(line.message);
    }
  }
  return out;
}

std::string LogCapture::text() const {
  std::wstring out;
  for (const LogLine& line : lines()) {
    out.append(CORE::levelName(line.level)).append(L" ").append(line.message).append(L"\n");
  }
  return CORE::toUtf8Lossy(out);
}

void LogCapture::clear() { forgotten_ += lines().size(); }

}  // namespace sim
