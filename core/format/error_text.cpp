#include "core/format/error_text.h"

#include <array>

#include "core/format/format.h"
#include "platform/platform.h"
#include "platform/system.h"
#include "platform/text.h"

namespace CORE {
namespace {

constexpr std::size_t kBufferCharacters = 4096;

/// Returns an empty text when the table has no message for the number.
std::wstring tableText(std::uint32_t source, platform::NativeHandle module, std::uint32_t code) {
  std::array<wchar_t, kBufferCharacters> buffer{};
  const auto written =
      platform::current().text.FormatMessageW(source | platform::kFormatMessageIgnoreInserts, module, code, buffer);
  std::wstring text(buffer.data(), written ? written.value : 0);
  text.erase(text.find_last_not_of(L" \t\r\n") + 1);
  return text;
}

}  // namespace

std::wstring systemMessageText(std::uint32_t code) {
  return tableText(platform::kFormatMessageFromSystem, nullptr, code);
}

std::wstring systemErrorText(std::uint32_t code) {
  std::wstring text = systemMessageText(code);
  return text.empty() ? format(L"Error %u (0x%x)", code, code) : text;
}

std::wstring numberedErrorText(std::uint32_t code) { return format(L"0x%x %s", code, systemErrorText(code)); }

std::wstring moduleErrorText(const std::wstring& module, std::uint32_t code) {
  const platform::NativeHandle loaded = platform::current().system.GetModuleHandleW(module);
  if (loaded != nullptr) {
    std::wstring text = tableText(platform::kFormatMessageFromModule, loaded, code);
    if (!text.empty()) {
      return text;
    }
  }
  return systemErrorText(code);
}

}  // namespace CORE
