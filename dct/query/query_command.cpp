#include "dct/query/query_command.h"

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "dct/query/pipe_reader.h"
#include "dct/query/query_child.h"
#include "platform/objects.h"
#include "platform/platform.h"

namespace {

// The texts name runDctCommand, the operation of dct_common that runs the query.

constexpr std::uint32_t kMaxRunMilliseconds = 60000;

/// Stores a failure in the result bag and logs it.
/// \return false, for the caller to return in turn.
bool storeAndLogError(CORE::PropertyBag& result, std::uint32_t code, const std::wstring& text) {
  result.setError(code, text);
  CORE::log(CORE::kError, L"dct_common::runDctCommand(): %s", text);
  return false;
}

struct Pipes {
  platform::Pipe output;
  platform::Pipe input;
};

/// Opens both pipes. Only the child's ends stay inheritable: with the other ends it would keep its own pipes open.
bool openPipes(Pipes& pipes, CORE::PropertyBag& result) {
  const platform::Platform& windows = platform::current();
  auto output = windows.processes.CreatePipe(true);
  if (!output) {
    return storeAndLogError(
        result, output.error,
        CORE::format(L"Failed to create std pipe with error %s.", CORE::systemErrorText(output.error)));
  }
  pipes.output = std::move(output.value);
  auto kept = windows.objects.SetHandleInformation(pipes.output.read.get(), platform::kHandleFlagInherit, 0);
  if (!kept) {
    return storeAndLogError(
        result, kept.error,
        CORE::format(L"Failed to set handle information with error %s.", CORE::systemErrorText(kept.error)));
  }
  auto input = windows.processes.CreatePipe(true);
  if (!input) {
    return storeAndLogError(
        result, input.error,
        CORE::format(L"Failed to create stdin pipe with error %s.", CORE::systemErrorText(input.error)));
  }
  pipes.input = std::move(input.value);
  kept = windows.objects.SetHandleInformation(pipes.input.write.get(), platform::kHandleFlagInherit, 0);
  if (!kept) {
    return storeAndLogError(
        result, kept.error,
        CORE::format(L"Failed to set stdin handle information with error %s.", CORE::systemErrorText(kept.error)));
  }
  return true;
}

/// Waits for the end of the child. A wait result that is not documented is a failure with that number.
bool waitForChild(QueryChild& child, const std::wstring& command, CORE::PropertyBag& result) {
  const auto waited = child.wait(kMaxRunMilliseconds);
  if (waited && waited.value == platform::kWaitObject0) {
    return true;
  }
  if (waited && waited.value == platform::kWaitTimeout) {
    return storeAndLogError(
        result, platform::kWaitTimeout,
        CORE::format(L"Timed out reading script output from the pipe when using command %s.", command));
  }
  const platform::ErrorCode error = waited ? waited.value : waited.error;
  return storeAndLogError(result, error,
                          CORE::format(L"Failed to wait for DCT to complete using command '%s' with error %s.", command,
                                       CORE::systemErrorText(error)));
}

/// Returns whether the child has ended with exit code 0.
bool checkExitCode(const QueryChild& child, CORE::PropertyBag& result) {
  const auto exitCode = child.exitCode();
  if (!exitCode) {
    return storeAndLogError(
        result, exitCode.error,
        CORE::format(L"Failed to get DCT process exit code with error %s.", CORE::systemErrorText(exitCode.error)));
  }
  if (exitCode.value != 0) {
    return storeAndLogError(result, exitCode.value,
                            CORE::format(L"DCT process failed with error %s.", CORE::systemErrorText(exitCode.value)));
  }
  return true;
}

}  // namespace

bool runQueryCommand(const std::wstring& command, const std::wstring& folder, CORE::PropertyBag& result,
                     std::string& output) {
  Pipes pipes;
  if (!openPipes(pipes, result)) {
    return false;
  }
  // Declared in this order, so that on an early return the child is ended first and the reader stops after it.
  PipeReader reader(std::move(pipes.output.read));
  QueryChild child;
  const platform::Status started = child.start(command, folder, {pipes.input.read.get(), pipes.output.write.get()});
  // The child has its own copies of its ends. With ours open the reader would never see the end of the pipe, and the
  // child would wait for input that never comes.
  pipes = {};
  if (!started) {
    return storeAndLogError(result, started.error,
                            CORE::format(L"Failed to start DCT using command '%s' with error %s.", command,
                                         CORE::systemErrorText(started.error)));
  }
  if (!reader.start()) {
    return storeAndLogError(result, platform::kErrorNotEnoughMemory,
                            L"Failed to start the thread that reads the pipe.");
  }
  if (!waitForChild(child, command, result)) {
    return false;
  }
  reader.finish();
  if (!checkExitCode(child, result)) {
    return false;
  }
  output = reader.takeOutput();
  CORE::log(CORE::kTrace,
            L"dct_common::runDctCommand(): Retrieved the following output from calling DCT with command '%s' - '%S'.",
            command, output);
  return true;
}
