#pragma once

#include <map>

#include "platform/text.h"
#include "tests/sim/kernel.h"

namespace sim {

/// Text services. Unless set otherwise, the system's message for 5 is "Message 5.\r\n" and that of winhttp.dll for
/// 12029 is "WinHTTP message 12029.\r\n".
class Text : public platform::Text {
 public:
  explicit Text(Kernel& kernel);

  void setMessage(platform::ErrorCode code, const std::wstring& text);
  void setModuleMessage(platform::ErrorCode code, const std::wstring& text);
  /// Neither table knows that code (error 317).
  void setUnknown(platform::ErrorCode code);
  void setVariable(const std::wstring& name, const std::wstring& value);
  void eraseVariable(const std::wstring& name);

  int CompareStringW(std::uint32_t locale, std::uint32_t flags, std::wstring_view first,
                     std::wstring_view second) override;
  int CompareStringA(std::uint32_t locale, std::uint32_t flags, std::string_view first,
                     std::string_view second) override;
  void CharLowerBuffW(std::span<wchar_t> text) override;
  void CharLowerBuffA(std::span<char> text) override;
  platform::Result<std::uint32_t> FormatMessageW(std::uint32_t flags, platform::NativeHandle module, std::uint32_t code,
                                                 std::span<wchar_t> buffer) override;
  platform::Result<std::uint32_t> ExpandEnvironmentStringsW(const std::wstring& source,
                                                            std::span<wchar_t> buffer) override;

 private:
  Kernel& kernel_;
  std::map<platform::ErrorCode, std::wstring> messages_;
  std::map<platform::ErrorCode, std::wstring> moduleMessages_;
  std::map<std::wstring, std::wstring> environment_;  ///< names lower-cased
};

/// A character's number: wchar_t is signed on some platforms.
inline std::uint32_t codeOf(wchar_t character) {
  return static_cast<std::uint32_t>(std::char_traits<wchar_t>::to_int_type(character));
}

/// Lower case as the simulation folds it: ASCII, Latin-1, basic Greek and Cyrillic.
wchar_t lowerCase(wchar_t character);
std::wstring lowerCase(std::wstring text);

}  // namespace sim
