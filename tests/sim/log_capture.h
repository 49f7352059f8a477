#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "core/log/log.h"
#include "core/log/logger.h"
#include "tests/sim/windows.h"

namespace sim {

/// One record as the debug file holds it.
struct LogLine {
  CORE::LogLevel level;
  std::wstring message;
  friend bool operator==(const LogLine&, const LogLine&) = default;
};

/// The program's log of one test. The logger runs, with every level on, while this object lives. Make it right after
/// the simulated Windows, so that it is destroyed first.
///
/// A log call writes on the thread that logs, so its platform calls have a fixed order. Both files are open from the
/// beginning, so that a CreateFileW which a test makes fail is the program's own. A failing WriteFile loses lines.
class LogCapture {
 public:
  explicit LogCapture(Windows& windows);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Every record since the start or the latest clear(), in order. A message of several lines is one record.
  std::vector<LogLine> lines() const;
  bool has(CORE::LogLevel level, std::wstring_view text) const;
  /// Returns the number of records that contain the text.
  std::size_t count(std::wstring_view text) const;
  std::vector<std::wstring> messages(CORE::LogLevel level) const;
  std::string text() const;  ///< all records, one a line: "ERROR wWinMain(): ..."
  void clear();              ///< forgets the records so far

  static constexpr const wchar_t* kFolder = L"C:\\SimLogs";

 private:
  Windows& windows_;
  std::size_t forgotten_ = 0;
};

/// Splits the text of a log file into its records.
std::vector<LogLine> parseLog(std::wstring_view text);

}  // namespace sim
