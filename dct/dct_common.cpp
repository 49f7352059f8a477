#include "dct/dct_common.h"

#include "core/files/ensure_folder.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "dct/query/capability_query.h"
#include "dct/query/query_command.h"
#include "dct/request_filter.h"
#include "dct/result_code.h"
#include "platform/files.h"
#include "platform/platform.h"

namespace {

std::wstring joined(std::wstring folder, const wchar_t* name) {
  if (!folder.ends_with(L'\\')) {
    folder += L'\\';
  }
  return folder + name;
}

}  // namespace

bool dct_common::validate(CORE::PropertyBag& /*request*/, CORE::PropertyBag& /*result*/) { return true; }

bool dct_common::invokeDCTScript(CORE::PropertyBag& request, CORE::PropertyBag& result) {
  if (!validate(request, result)) {
    return false;
  }
  if (CORE::logAdmits(CORE::kInfo)) {
    CORE::log(CORE::kInfo, L"dct_common::invokeDCTScript(): Parameters received: \n %s",
              request.toString(L"\r\n", false, CORE::kMaxMessageCharacters));
  }
  tempFolder_ = getTempFolder();
  CORE::log(CORE::kDebug, L"dct_common::invokeDCTScript(): Temp folder - %s", tempFolder_);
  const platform::Status made = CORE::ensureFolder(tempFolder_);
  if (!made) {
    CORE::log(CORE::kDebug, L"dct_common::invokeDCTScript(): Unable to make the folder %s: 0x%x %s", tempFolder_,
              made.error, CORE::systemErrorText(made.error));
    return storeError(result, ResultCode::kNoTempFolder, L"Cannot create the temporary directory.");
  }
  const std::wstring folder = scriptFolder();
  if (folder.empty()) {
    return storeError(result, ResultCode::kNoInstallPath, getMessage(1));
  }
  const std::wstring scriptPath = joined(folder, L"vdx-support.ps1");
  if (platform::current().files._waccess(scriptPath, 0) != 0) {
    CORE::log(CORE::kDebug, L"dct_common::invokeDCTScript(): There is no %s", scriptPath);
    return storeError(result, ResultCode::kNoScript, L"The DCT script is not found on disk.");
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

// The texts name invokeDCTScript, of which this is a step.
bool dct_common::startScript(const std::wstring& command, const std::wstring& folder,
                             platform::ProcessInformation& process, CORE::PropertyBag& result) {
  CORE::log(CORE::kDebug, L"dct_common::invokeDCTScript(): %s: command line: %s", getMessage(0), command);
  auto started = platform::current().processes.CreateProcessW(command, false, 0, folder, {});
  if (!started) {
    CORE::log(CORE::kError, L"dct_common::invokeDCTScript(): Could not create process.");
    return storeError(result, ResultCode::kNotStarted,
                      CORE::format(L"The DCT script failed to start, error: %s", CORE::systemErrorText(started.error)));
  }
  process = std::move(started.value);
  return true;
}

std::wstring dct_common::getDCTFilter(CORE::PropertyBag& request) {
  if (!loadSupportedLists([this](CORE::PropertyBag& answer) { return getLogLevel(answer); }) && !queryErrors_.empty()) {
    CORE::log(CORE::kWarn, L"dct_common::getDCTFilter(): Standard error of the query: %S", queryErrors_);
  }
  return filterArguments(request);
}

bool dct_common::runDctCommand(const std::wstring& command, CORE::PropertyBag& result, std::string& output) {
  const std::wstring folder = scriptFolder();
  if (!folder.empty()) {
    QueryOutput written;
    const bool succeeded = runQueryCommand(command, folder, result, written);
    queryErrors_ = std::move(written.errors);
    if (succeeded) {
      output = std::move(written.text);
    }
    return succeeded;
  }
  // Without an install path the folder would be "\dct" on the current drive, where anybody may have put a script.
  const std::wstring text = getMessage(1);
  CORE::log(CORE::kError, L"dct_common::runDctCommand(): %s", text);
  return storeError(result, ResultCode::kNoInstallPath, text);
}

bool dct_common::getLogLevel(CORE::PropertyBag& bag) {
  std::string output;
  if (!runDctCommand(kQueryCommand, bag, output)) {
    return false;
  }
  if (!parseCapabilityOutput(output, bag)) {
    // An answer can be long. The text stops where a log record would stop showing it.
    const CORE::FormatArgument text = {CORE::FormatKind::kNarrow, 0, {}, output};
    const std::wstring error =
        CORE::formatArguments(L"Failed to load json %S.", {&text, 1}, CORE::kMaxMessageCharacters);
    CORE::log(CORE::kError, L"dct_common::getLogLevel(): %s", error);
    return storeError(bag, ResultCode::kUnreadableAnswer, error);
  }
  bag.set(L"Version", L"2");
  return true;
}
