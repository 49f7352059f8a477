#include "core/files/ensure_folder.h"

#include <algorithm>
#include <vector>

#include "core/text/path_text.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace CORE {
namespace {

constexpr std::wstring_view kSeparators = L"\\/";
using platform::kMaxPathCharacters;

bool isSeparator(wchar_t c) { return kSeparators.find(c) != std::wstring_view::npos; }

/// Returns the length of the root, which has no parent: "C:\", "C:", "\", "\\server\share" (which "\\?\C:" looks like),
/// or nothing.
std::size_t rootLength(std::wstring_view path) {
  if (path.size() >= 2 && path[1] == L':') {
    return path.size() >= 3 && isSeparator(path[2]) ? 3 : 2;
  }
  if (path.empty() || !isSeparator(path[0])) {
    return 0;
  }
  if (path.size() < 2 || !isSeparator(path[1])) {
    return 1;
  }
  const std::size_t share = path.find_first_of(kSeparators, 2);
  if (share == std::wstring_view::npos) {
    return path.size();
  }
  return std::min(path.find_first_of(kSeparators, share + 1), path.size());
}

/// As withoutTrailingSeparators, but a root keeps its own separator.
std::wstring_view withoutSeparatorsBelowRoot(std::wstring_view path) {
  return path.substr(0, std::max(rootLength(path), withoutTrailingSeparators(path).size()));
}

}  // namespace

std::wstring_view parentPath(std::wstring_view path) {
  path = withoutSeparatorsBelowRoot(path);
  const std::size_t root = rootLength(path);
  if (path.size() <= root) {
    return path;
  }
  while (path.size() > root && !isSeparator(path.back())) {
    path.remove_suffix(1);
  }
  return withoutSeparatorsBelowRoot(path);
}

platform::Status ensureFolder(std::wstring_view path) {
  path = withoutSeparatorsBelowRoot(path);
  if (path.empty() || path.size() > kMaxPathCharacters) {
    return {false, platform::kErrorPathNotFound};
  }
  auto& files = platform::current().files;
  std::vector<std::wstring> missing;  // deepest first
  while (!path.empty() && files._waccess(std::wstring(path), 0) != 0) {
    missing.emplace_back(path);
    const std::wstring_view parent = parentPath(path);
    if (parent.size() == path.size()) {
      break;
    }
    path = parent;
  }
  for (; !missing.empty(); missing.pop_back()) {
    const platform::Status made = files.CreateDirectoryW(missing.back());
    if (!made) {
      return made;
    }
  }
  return {true, platform::kErrorSuccess};
}

}  // namespace CORE
