#include "core/log/log_folder.h"

#include "core/settings/environment.h"
#include "platform/platform.h"
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

}  // namespace CORE
