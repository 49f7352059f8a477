#pragma once

#include <string>

namespace CORE {

/// What the version resource of a program says about it. A text that is not there is empty.
struct ProgramVersion {
  std::wstring version;
  std::wstring description;

  /// Reads the resource of a file, in the first of its languages. Both texts are empty when the file has none.
  /// Source: VerQueryValueW, StringFileInfo.
  static ProgramVersion of(const std::wstring& path);
};

}  // namespace CORE
