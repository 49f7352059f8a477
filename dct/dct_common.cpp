#include "dct/dct_common.h"

#include "core/files/ensure_folder.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace {

constexpr std::uint32_t kErrorNotStarted = 60;
constexpr std::uint32_t kErrorNoScript = 70;
constexpr std::uint32_t kErrorNoInstallPath = 80;
constexpr std::uint32_t kErrorNoTempFolder = 130;
constexpr std::size_t kMaxMessageCharacters = 8192;  // what a log record holds

std::wstring joined(std::wstring folder, const wchar_t* name) {
  if (!folder.ends_with(L'\\')) {
    folder += L'\\';
  }
  return folder + name;
}

bool fail(CORE::PropertyBag& result, std::uint32_t code, const std::wstring& text) {
  result.setError(code, text);
  return false;
}

}  // namespace

bool dct_common::validate(CORE::PropertyBag& /*request*/, CORE::PropertyBag& /*result*/) { return true; }

bool dct_common::invokeDCTScript(CORE::PropertyBag& request, CORE::PropertyBag& result) {
  if (!validate(request, result)) {
    return false;
  }
  if (CORE::logAdmits(CORE::kInfo)) {
    CORE::log(CORE::kInfo, L"dct_common::invokeDCTScript(): Parameters received: \n %s",
              request.toString(L"\r\n", false, kMaxMessageCharacters));
  }
  tempFolder_ = getTempFolder();
  CORE::log(CORE::kDebug, L"dct_common::invokeDCTScript(): Temp folder - %s", tempFolder_);
  if (!ensureFolder(tempFolder_)) {
    return fail(result, kErrorNoTempFolder, L"Cannot create the temporary directory.");
  }
  const std::wstring folder = scriptFolder();
  if (folder.empty()) {
    return fail(result, kErrorNoInstallPath, getMessage(1));
  }
  const std::wstring scriptPath = joined(folder, L"vdx-support.ps1");
  if (platform::current().files._waccess(scriptPath, 0) != 0) {
    return fail(result, kErrorNoScript, L"The DCT script is not found on disk.");
  }
  std::wstring bundlePath;
  getBundlePath(bundlePath, request, tempFolder_);
  platform::ProcessInformation process;
  if (!startScript(commandLine(scriptPath, bundlePath, request), folder, process, result)) {
    return false;
  }
  return monitorDCTProcess(request, std::move(process), bundlePath, result);
}

std::wstring dct_common::scriptFolder() {
  std::wstring installPath = getInstallPath();
  return installPath.empty() ? std::wstring() : joined(std::move(installPath), L"dct");
}

std::wstring dct_common::commandLine(const std::wstring& scriptPath, const std::wstring& bundlePath,
                                     CORE::PropertyBag& request) {
  return L"powershell.exe -nologo -ExecutionPolicy RemoteSigned -File \"" + scriptPath + L"\" -f \"" + bundlePath +
         L"\" -d \"" + tempFolder_ + L"\" " + getDCTFilter(request);
}

bool dct_common::startScript(const std::wstring& command, const std::wstring& folder,
                             platform::ProcessInformation& process, CORE::PropertyBag& result) {
  CORE::log(CORE::kDebug, L"dct_common::invokeDCTScript(): %s: command line: %s", getMessage(0), command);
  auto started = platform::current().processes.CreateProcessW(command, false, 0, folder, {});
  if (!started) {
    CORE::log(CORE::kError, L"dct_common::invokeDCTScript(): Could not create process.");
    return fail(result, kErrorNotStarted,
                CORE::format(L"The DCT script failed to start, error: %s", CORE::systemErrorText(started.error)));
  }
  process = std::move(started.value);
  return true;
}
