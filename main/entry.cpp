#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/log/log_context.h"
#include "core/log/logger.h"
#include "main/run.h"
#include "platform/system.h"
#include "platform/windows/windows_platform.h"

/// The entry point of a windowless program, as the C runtime calls it: HINSTANCE, HINSTANCE, LPWSTR, int. It uses none
/// of these arguments. Returns the exit code of the process.
extern "C" int wWinMain(void* /*instance*/, void* /*previous*/, wchar_t* /*commandLine*/, int /*showCommand*/) {
  // The first statement: from here on DLLs are loaded from the system's own folder only. Those of the import table are
  // loaded already. A failure is logged as soon as there is a log.
  const platform::Status limited =
      platform::windowsPlatform().system.SetDefaultDllDirectories(platform::kLoadLibrarySearchSystem32);

  platform::install(&platform::windowsPlatform());
  CORE::corelogger::instance().start(L"mdDCT");
  CORE::setLogContext(L"main");
  if (!limited) {
    CORE::log(CORE::kError, L"wWinMain(): SetDefaultDllDirectories failed: 0x%x %s", limited.error,
              CORE::systemErrorText(limited.error));
  }
  const ExitCode exitCode = runProgram();
  CORE::corelogger::instance().flush();

  // A worker of WinHTTP or of the log may still run here. The return is safe all the same: no object of ours has a
  // static destructor (scripts/check-executable.sh checks it), so what a worker uses lives until ExitProcess ends it.
  return static_cast<int>(exitCode);
}
