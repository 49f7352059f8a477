#include "core/files/program_version.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "core/base/unicode.h"
#include "core/format/format.h"
#include "platform/platform.h"
#include "platform/system.h"

namespace CORE {
namespace {

using Block = std::span<const std::byte>;

std::wstring textOf(Block block, const std::wstring& table, const wchar_t* name) {
  const auto found = platform::current().system.VerQueryValueW(block, table + name);
  std::wstring text = found ? fromUtf16Bytes(found.value) : std::wstring();
  return text.substr(0, text.find(L'\0'));
}

}  // namespace

ProgramVersion ProgramVersion::of(const std::wstring& path) {
  platform::System& system = platform::current().system;
  const auto size = system.GetFileVersionInfoSizeW(path);
  std::vector<std::byte> block(size ? size.value : 0);
  if (block.empty() || !system.GetFileVersionInfoW(path, block)) {
    return {};
  }
  std::uint16_t translation[2] = {};  // language, code page
  const auto languages = system.VerQueryValueW(block, L"\\VarFileInfo\\Translation");
  if (!languages || languages.value.size() < sizeof(translation)) {
    return {};
  }
  std::memcpy(translation, languages.value.data(), sizeof(translation));
  const std::wstring table = format(L"\\StringFileInfo\\%4.4x%4.4x\\", translation[0], translation[1]);
  return {textOf(block, table, L"FileVersion"), textOf(block, table, L"FileDescription")};
}

}  // namespace CORE
