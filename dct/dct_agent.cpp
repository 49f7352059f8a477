#include "dct/dct_agent.h"

#include <array>

#include "core/files/ensure_folder.h"
#include "core/files/protected_folder.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "dct/agent_paths.h"
#include "dct/result_code.h"
#include "platform/files.h"
#include "platform/objects.h"
#include "platform/platform.h"

namespace {

constexpr std::uint32_t kCancelledExitCode = 200;
constexpr std::uint32_t kNoExitCode = 0xFFFFFFFF;

/// Makes the logging folder when it is missing. It is made before the folder below it, and protected, so that only the
/// system and administrators can read the bundle.
platform::Status ensureLoggingFolder() {
  const std::wstring folder = agentLoggingFolder();
  const bool exists = platform::current().files._waccess(folder, 0) == 0;
  return exists ? platform::Status{true, platform::kErrorSuccess} : CORE::makeProtectedFolder(folder);
}

}  // namespace

bool dct_Agent::validate(CORE::PropertyBag& /*request*/, CORE::PropertyBag& result) {
  const std::wstring folder = getTempFolder();
  CORE::log(CORE::kTrace, L"dct_Agent::validate(): Temp folder - %s", folder);
  platform::Status made = ensureLoggingFolder();
  if (made) {
    made = CORE::ensureFolder(folder);
  }
  if (!made) {
    CORE::log(CORE::kDebug, L"dct_Agent::validate(): Unable to make the folder %s: 0x%x %s", folder, made.error,
              CORE::systemErrorText(made.error));
    return storeError(result, ResultCode::kNoTempFolder, L"Cannot create the temporary directory.");
  }
  return true;
}

bool dct_Agent::monitorDCTProcess(CORE::PropertyBag& /*request*/, platform::ProcessInformation process,
                                  std::wstring bundlePath, CORE::PropertyBag& result) {
  // kept: the text says "cscript", the child is PowerShell.
  CORE::log(CORE::kTrace, L"dct_Agent::monitorDCTProcess(): PID of DCT cscript: %d", process.processId);
  const platform::NativeHandle handle = process.process.get();
  auto& processes = platform::current().processes;
  if (waitForScript(handle)) {
    const bool ended = processes.TerminateProcess(handle, kCancelledExitCode).ok;
    CORE::log(CORE::kWarn, L"dct_Agent::monitorDCTProcess(): Terminate process on DCT collection %s",
              ended ? L"succeeded" : L"failed");
    result.setErrorText(L"The DCT script was cancelled");
    return false;
  }
  if (platform::current().files._waccess(bundlePath, 0) == 0) {
    result.set(L"FileName", std::move(bundlePath));
    return true;
  }
  const auto exitCode = processes.GetExitCodeProcess(handle);
  result.setErrorText(CORE::format(L"The DCT script FAILED. Process exited with error %s.",
                                   CORE::systemErrorText(exitCode ? exitCode.value : kNoExitCode)));
  return false;
}

// The text names monitorDCTProcess, whose wait this is.
bool dct_Agent::waitForScript(platform::NativeHandle process) {
  auto& objects = platform::current().objects;
  const std::uint32_t timeout = getScriptTimeout();
  if (cancelEvent_ == nullptr) {
    const auto waited = objects.WaitForSingleObject(process, timeout);
    if (!waited) {
      CORE::log(CORE::kError, L"dct_Agent::monitorDCTProcess(): Unable to wait for the DCT script: %s",
                CORE::systemErrorText(waited.error));
    }
    return false;
  }
  const std::array<platform::NativeHandle, 2> handles = {process, cancelEvent_};
  return objects.WaitForMultipleObjects(handles, false, timeout).value == platform::kWaitObject0 + 1;
}

std::uint32_t dct_Agent::getScriptTimeout() { return platform::kInfinite; }

std::wstring dct_Agent::getInstallPath() { return agentInstallPath(); }

std::wstring dct_Agent::getTempFolder() {
  std::wstring folder = agentLoggingFolder();
  return folder.empty() ? folder : folder + L"\\Temp";
}

void dct_Agent::getBundlePath(std::wstring& out, CORE::PropertyBag& /*request*/, std::wstring tempFolder) {
  out = newBundlePath(tempFolder);
}

std::wstring dct_Agent::getMessage(int which) {
  switch (which) {
    case 0:
      return L"CreateAgentDCT";
    case 1:
      return L"Cannot get the AgentInstallPath from registry";
    default:
      return {};
  }
}
