#include "core/log/log_folder.h"

#include "core/settings/environment.h"
#include "platform/files.h"
#include "platform/platform.h"
#include "platform/security.h"
#include "platform/system.h"

namespace CORE {

std::wstring defaultLogFolder() {
  const auto data = expandEnvironment(L"%ProgramData%");
  if (data && !data->empty() && data->front() != L'%') {
    return *data + L"\\Calvera\\Meridon\\logs";
  }
  const auto program = platform::current().system.GetModuleFileNameW();
  const std::size_t end = program ? program.value.find_last_of(L"\\/") : std::wstring::npos;
  return end == std::wstring::npos ? std::wstring() : program.value.substr(0, end) + L"\\logs";
}

platform::Status makeProtectedFolder(const std::wstring& path) {
  const platform::Platform& platform = platform::current();
  // Nothing inherited; full access for the system and for administrators, handed down to files and folders.
  const auto descriptor =
      platform.security.ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
  if (!descriptor) {
    return {false, descriptor.error};
  }
  for (std::size_t at = path.find_first_of(L"\\/", 1); at != std::wstring::npos && at + 1 < path.size();
       at = path.find_first_of(L"\\/", at + 1)) {
    platform.files.CreateDirectoryW(path.substr(0, at));  // those that are there already only fail
  }
  const auto made = platform.files.CreateDirectoryW(path, descriptor.value.get());
  return {made.ok || made.error == platform::kErrorAlreadyExists, made.error};
}

}  // namespace CORE
