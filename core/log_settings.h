#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace CORE {

/// The logger's settings: a list of keys with defaults, each overridden by the value of its name under
/// "HKLM\Software\Calvera\Meridon\Log". Reading is readSetting's; the object itself is plain data.
class LogSettings {
 public:
  /// The defaults alone.
  LogSettings();
  /// The defaults, overridden by what the registry holds now.
  static LogSettings read();

  /// The value of a key as text. Keys are those of the list, in their spelling.
  /// \throws coreException for another key (a programming error).
  const std::wstring& text(std::wstring_view key) const;
  bool flag(std::wstring_view key) const;
  /// The value as a number above 0; the default for 0 and for what is no number.
  std::uint32_t number(std::wstring_view key) const;
  /// "LogFileDirectory" as configured; empty when nothing is configured.
  const std::wstring& folder() const { return folder_; }

 private:
  std::map<std::wstring, std::wstring, std::less<>> values_;
  std::wstring folder_;
};

}  // namespace CORE
