#pragma once

#include <string>

namespace CORE {

/// What a program's version resource says of it; a text that it does not have is empty.
struct ProgramVersion {
  std::wstring version;
  std::wstring description;

  /// Of that file, in the first of its languages. Both texts are empty when it has no such resource.
  /// Source: VerQueryValueW, StringFileInfo.
  static ProgramVersion of(const std::wstring& path);
};

}  // namespace CORE
