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
  /// One setting as the registry holds it now, or its default.
  static std::uint32_t readNumber(std::wstring_view key);
  /// A further value of the same key, off by default.
  static bool readFlag(std::wstring_view valueName);
  /// The registry key of them all, below the machine's root.
  static std::wstring keyPath();

  /// The value of a key as text. Keys are those of the list, in their spelling.
  /// \throws coreException for another key (a programming error).
  const std::wstring& text(std::wstring_view key) const;
  bool flag(std::wstring_view key) const;
  /// The value as a number above 0; the default for 0 and for what is no number (0 when the default is none).
  std::uint32_t number(std::wstring_view key) const;
  /// "LogFileDirectory" as configured; empty when nothing is configured.
  const std::wstring& folder() const { return folder_; }
  /// "sysMessageToConsole" of the product's key.
  bool consoleWanted() const { return consoleWanted_; }
  /// Whether a program is listed in "userModeLogPrograms" (file names separated by ";" or ",", in any case).
  bool isUserModeProgram(std::wstring_view program) const;

 private:
  std::map<std::wstring, std::wstring, std::less<>> values_;
  std::wstring folder_;
  std::wstring userModePrograms_;
  bool consoleWanted_ = false;
};

}  // namespace CORE
