#include "core/files/protected_folder.h"

#include "platform/files.h"
#include "platform/platform.h"
#include "platform/security.h"

namespace CORE {

platform::Status makeProtectedFolder(const std::wstring& path) {
  const platform::Platform& platform = platform::current();
  // The folder inherits nothing. The system and administrators have full access, which files and folders in it inherit.
  const auto descriptor =
      platform.security.ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)");
  if (!descriptor) {
    return {false, descriptor.error};
  }
  for (std::size_t at = path.find_first_of(L"\\/", 1); at != std::wstring::npos && at + 1 < path.size();
       at = path.find_first_of(L"\\/", at + 1)) {
    platform.files.CreateDirectoryW(path.substr(0, at));  // fails, which does not matter, for one that exists already
  }
  const auto made = platform.files.CreateDirectoryW(path, descriptor.value.get());
  return {made.ok || made.error == platform::kErrorAlreadyExists, made.error};
}

}  // namespace CORE
