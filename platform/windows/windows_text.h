#pragma once

#include "platform/text.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsText final : public Text {
 public:
  int CompareStringW(std::uint32_t locale, std::uint32_t flags, std::wstring_view first,
                     std::wstring_view second) override;
  int CompareStringA(std::uint32_t locale, std::uint32_t flags, std::string_view first,
                     std::string_view second) override;
  void CharLowerBuffW(std::span<wchar_t> text) override;
  void CharLowerBuffA(std::span<char> text) override;
  Result<std::uint32_t> FormatMessageW(std::uint32_t flags, NativeHandle module, std::uint32_t code,
                                       std::span<wchar_t> buffer) override;
  Result<std::uint32_t> ExpandEnvironmentStringsW(const std::wstring& source, std::span<wchar_t> buffer) override;
};

}  // namespace platform
