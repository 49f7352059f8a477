#include "core/crash/minidump_file.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "core/base/local_time.h"
#include "core/files/protected_folder.h"
#include "core/format/error_text.h"
#include "core/format/format.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/processes.h"

namespace CORE {
namespace {

constexpr std::wstring_view kEnding = L".dmp";
constexpr std::wstring_view kPartialEnding = L".dmp.partial";

using Names = std::vector<std::wstring>;

MinidumpOutcome none(std::wstring why) { return {false, std::move(why)}; }

bool isDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

/// Whether a file name has that ending (in lower case), in any case.
bool endsWith(std::wstring_view name, std::wstring_view ending) {
  const auto same = [](wchar_t c, wchar_t small) { return c == small || (c >= L'A' && c <= L'Z' && c + 32 == small); };
  return name.size() >= ending.size() &&
         std::equal(ending.rbegin(), ending.rend(), name.rbegin(), [&](wchar_t a, wchar_t b) { return same(b, a); });
}

/// Whether this program gives names like that.
bool isOwn(std::wstring_view name, std::wstring_view ending) {
  constexpr std::wstring_view kShape = L"mdDCT-0000-00-00-000000-";
  if (name.size() <= kShape.size() + ending.size() || !endsWith(name, ending)) {
    return false;
  }
  const std::wstring_view id = name.substr(kShape.size(), name.size() - kShape.size() - ending.size());
  return std::equal(kShape.begin(), kShape.end(), name.begin(),
                    [](wchar_t at, wchar_t c) { return at == L'0' ? isDigit(c) : at == c; }) &&
         std::all_of(id.begin(), id.end(), isDigit);
}

std::wstring newName() {
  const platform::SystemTime t = localTimeNow();
  return format(L"mdDCT-%04u-%02u-%02u-%02u%02u%02u-%u.dmp", t.year, t.month, t.day, t.hour, t.minute, t.second,
                platform::current().processes.GetCurrentProcessId());
}

/// Lists the files with that ending. The names found are checked again, because the search also compares short names,
/// in which an ending has three characters.
platform::Status list(const std::wstring& folder, std::wstring_view ending, Names& names) {
  platform::Files& files = platform::current().files;
  platform::FoundFile found;
  const auto search = files.FindFirstFileW((folder + L"\\*").append(ending), found);
  if (!search) {
    return {search.error == platform::kErrorFileNotFound, search.error};
  }
  platform::Status more{true, platform::kErrorSuccess};
  for (; more; more = files.FindNextFileW(search.value.get(), found)) {
    if (!found.isFolder && endsWith(found.name, ending)) {
      names.push_back(found.name);
    }
  }
  return {more.error == platform::kErrorNoMoreFiles, more.error};
}

/// Removes the files of dumps that were not finished. A dump that is still being written is open, and stays.
void removePartialFiles(const std::wstring& folder) {
  const std::wstring start = folder + L"\\";
  Names names;
  list(folder, kPartialEnding, names);
  for (const std::wstring& name : names) {
    if (isOwn(name, kPartialEnding)) {
      platform::current().files.DeleteFileW(start + name);
    }
  }
}

/// Removes this program's oldest dumps until the folder has room for one more.
/// \return why it has none; empty when it has.
std::wstring makeRoom(const CrashSettings& settings) {
  Names names;
  const platform::Status listed = list(settings.dumpFolder, kEnding, names);
  if (!listed) {
    return format(L"the dumps in %s cannot be counted: %s", settings.dumpFolder, numberedErrorText(listed.error));
  }
  const auto firstOwn =
      std::partition(names.begin(), names.end(), [](const std::wstring& name) { return !isOwn(name, kEnding); });
  std::sort(firstOwn, names.end());
  const std::wstring start = settings.dumpFolder + L"\\";
  std::size_t kept = names.size();
  // When the dumps of others alone fill the folder, removing our own would make no room.
  if (static_cast<std::size_t>(firstOwn - names.begin()) < settings.dumpCount) {
    for (auto name = firstOwn; name != names.end() && kept >= settings.dumpCount; ++name) {
      kept -= platform::current().files.DeleteFileW(start + *name) ? 1U : 0U;
    }
  }
  return kept < settings.dumpCount
             ? L""
             : format(L"%s holds %zu of at most %u dumps", settings.dumpFolder, kept, settings.dumpCount);
}

MinidumpOutcome writeFile(const CrashSettings& settings, const platform::CrashInfo* info) {
  const platform::Platform& platform = platform::current();
  const std::wstring path = settings.dumpFolder + L"\\" + newName();
  const std::wstring partial = path + L".partial";
  auto file = platform.files.CreateFileW(partial, platform::kGenericWrite, 0, platform::kCreateNew,
                                         platform::kFileAttributeNormal);
  if (!file) {
    return none(format(L"%s cannot be made: %s", partial, numberedErrorText(file.error)));
  }
  platform::Status status = platform.crash.MiniDumpWriteDump(file.value.get(), settings.dumpType, info);
  file.value.reset();
  if (status) {
    status = platform.files.MoveFileExW(partial, path, 0);
  }
  if (!status) {
    platform.files.DeleteFileW(partial);
    return none(format(L"%s cannot be written: %s", path, numberedErrorText(status.error)));
  }
  return {true, path};
}

}  // namespace

MinidumpOutcome writeMinidump(const CrashSettings& settings, const platform::CrashInfo* info) {
  if (settings.dumpCount == 0) {
    return none(L"dumps are switched off");
  }
  if (settings.dumpFolder.empty()) {
    return none(L"there is no folder for it");
  }
  const platform::Status made = makeProtectedFolder(settings.dumpFolder);
  if (!made) {
    return none(format(L"the folder %s cannot be made: %s", settings.dumpFolder, numberedErrorText(made.error)));
  }
  removePartialFiles(settings.dumpFolder);
  const std::wstring full = makeRoom(settings);
  return full.empty() ? writeFile(settings, info) : none(full);
}

}  // namespace CORE
