#include "core/files/protected_folder.h"

#include "platform/files.h"
#include "platform/platform.h"
#include "platform/security.h"

namespace CORE {

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
