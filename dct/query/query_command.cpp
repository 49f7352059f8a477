#include "dct/query/query_command.h"

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "dct/query/pipe_reader.h"
#include "dct/query/query_child.h"
#include "platform/objects.h"
#include "platform/platform.h"

namespace {

constexpr std::uint32_t kTimeoutMilliseconds = 60000;

/// The failure of one run: goes into the result bag and into the log.
bool fail(CORE::PropertyBag& result, std::uint32_t code, const std::wstring& text) {
  result.setError(code, text);
  CORE::log(CORE::kError, L"dct_common::runDctCommand(): %s", text);
  return false;
}

struct Pipes {
  platform::Pipe output;
  platform::Pipe input;
};

/// Opens both pipes, of which only the child's ends are inheritable.
bool openPipes(Pipes& pipes, CORE::PropertyBag& result) {
  const platform::Platform& windows = platform::current();
  auto output = windows.processes.CreatePipe(true);
  if (!output) {
    return fail(result, output.error,
                CORE::format(L"Failed to create std pipe with error %s.", CORE::systemErrorText(output.error)));
  }
  pipes.output = std::move(output.value);
  auto kept = windows.objects.SetHandleInformation(pipes.output.read.get(), platform::kHandleFlagInherit, 0);
  if (!kept) {
    return fail(result, kept.error,
                CORE::format(L"Failed to set handle information with error %s.", CORE::systemErrorText(kept.error)));
  }
  auto input = windows.processes.CreatePipe(true);
  if (!input) {
    return fail(result, input.error,
                CORE::format(L"Failed to create stdin pipe with error %s.", CORE::systemErrorText(input.error)));
  }
  pipes.input = std::move(input.value);
  kept = windows.objects.SetHandleInformation(pipes.input.write.get(), platform::kHandleFlagInherit, 0);
  if (!kept) {
    return fail(
        result, kept.error,
        CORE::format(L"Failed to set stdin handle information with error %s.", CORE::systemErrorText(kept.error)));
  }
  return true;
}

/// Waits for the child. A wait that ends in another way than the documented ones is a failure with its own number.
bool waitForChild(QueryChild& child, const std::wstring& command, CORE::PropertyBag& result) {
  const auto waited = child.wait(kTimeoutMilliseconds);
  if (waited && waited.value == platform::kWaitObject0) {
    return true;
  }
  if (waited && waited.value == platform::kWaitTimeout) {
    return fail(result, platform::kWaitTimeout,
                CORE::format(L"Timed out reading script output from the pipe when using command %s.", command));
  }
  const platform::ErrorCode error = waited ? waited.value : waited.error;
  return fail(result, error,
              CORE::format(L"Failed to wait for DCT to complete using command '%s' with error %s.", command,
                           CORE::systemErrorText(error)));
}

bool checkExitCode(const QueryChild& child, CORE::PropertyBag& result) {
  const auto exitCode = child.exitCode();
  if (!exitCode) {
    return fail(
        result, exitCode.error,
        CORE::format(L"Failed to get DCT process exit code with error %s.", CORE::systemErrorText(exitCode.error)));
  }
  if (exitCode.value != 0) {
    return fail(result, exitCode.value,
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
  // In this order: a child that is still running is ended before the reader is told that it has ended.
  PipeReader reader(std::move(pipes.output.read));
  QueryChild child;
  const platform::Status started = child.start(command, folder, {pipes.input.read.get(), pipes.output.write.get()});
  pipes = {};  // the child's ends, or the reader would never see the end; and the input, of which there is none
  if (!started) {
    return fail(result, started.error,
                CORE::format(L"Failed to start DCT using command '%s' with error %s.", command,
                             CORE::systemErrorText(started.error)));
  }
  if (!reader.start()) {
    return fail(result, platform::kErrorNotEnoughMemory, L"Failed to start the thread that reads the pipe.");
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
