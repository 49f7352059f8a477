#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/log/log_context.h"
#include "core/log/logger.h"
#include "main/run.h"
#include "platform/system.h"
#include "platform/windows/windows_platform.h"

/// The entry point of a windowless program, as the C runtime calls it: HINSTANCE, HINSTANCE, LPWSTR, int. Nothing that
/// is passed is used. Returns the exit code of the process.
extern "C" int wWinMain(void* /*instance*/, void* /*previous*/, wchar_t* /*commandLine*/, int /*showCommand*/) {
  // First of all: from here on no DLL comes from anywhere but the system's own folder.
  const platform::Status limited =
      platform::windowsPlatform().system.SetDefaultDllDirectories(platform::kLoadLibrarySearchSystem32);

  platform::install(&platform::windowsPlatform());
  CORE::corelogger::instance().start(L"mdDCT");
  CORE::setLogContext(L"main");
  if (!limited) {
    CORE::log(CORE::kError, L"wWinMain(): SetDefaultDllDirectories failed: %s", CORE::systemErrorText(limited.error));
  }
  const ExitCode exitCode = runProgram();
  CORE::corelogger::instance().flush();

  // A worker of WinHTTP or the log may still run here. Returning is safe with it: no object of ours has a static
  // destructor (scripts/build-windows.sh checks), so what a worker can reach lives on until ExitProcess ends it.
  return static_cast<int>(exitCode);
}
