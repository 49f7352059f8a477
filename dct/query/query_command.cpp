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
/// The reader rests when it has emptied the pipes, and Windows lengthens a rest to one tick of its clock, up to 16 ms.
/// So the size limits the speed: with the default size 128 MiB would take minutes.
constexpr std::uint32_t kPipeBytes = 256U << 10;

/// Stores a failure in the result bag and logs it.
/// \return false, for the caller to return in turn.
bool storeAndLogError(CORE::PropertyBag& result, std::uint32_t code, const std::wstring& text) {
  result.setError(code, text);
  CORE::log(CORE::kError, L"dct_common::runDctCommand(): %s", text);
  return false;
}

/// The same for a call that failed.
/// \param text  names the call, and shows the message for its error.
bool storeAndLogError(CORE::PropertyBag& result, const platform::Status& failed,
                      CORE::FormatString<wchar_t, std::wstring> text) {
  return storeAndLogError(result, failed.error, CORE::format(text, CORE::systemErrorText(failed.error)));
}

struct Pipes {
  platform::Pipe output;
  platform::Pipe error;
  platform::Pipe input;
};

/// Opens a pipe. Only the child's end stays inheritable: with the other end it would keep its own pipe open.
/// \param ours  the end that is not the child's.
/// \param created  whether there is a pipe: a failure is then that of its end.
platform::Status openPipe(platform::Pipe& pipe, platform::KernelHandle platform::Pipe::*ours, bool& created) {
  const platform::Platform& windows = platform::current();
  auto opened = windows.processes.CreatePipe(true, kPipeBytes);
  created = opened.ok;
  if (!created) {
    return {false, opened.error};
  }
  pipe = std::move(opened.value);
  return windows.objects.SetHandleInformation((pipe.*ours).get(), platform::kHandleFlagInherit, 0);
}

bool openPipes(Pipes& pipes, CORE::PropertyBag& result) {
  bool created = false;
  if (const auto opened = openPipe(pipes.output, &platform::Pipe::read, created); !opened) {
    return created ? storeAndLogError(result, opened, L"Failed to set handle information with error %s.")
                   : storeAndLogError(result, opened, L"Failed to create std pipe with error %s.");
  }
  if (const auto opened = openPipe(pipes.error, &platform::Pipe::read, created); !opened) {
    return created ? storeAndLogError(result, opened, L"Failed to set stderr handle information with error %s.")
                   : storeAndLogError(result, opened, L"Failed to create stderr pipe with error %s.");
  }
  if (const auto opened = openPipe(pipes.input, &platform::Pipe::write, created); !opened) {
    return created ? storeAndLogError(result, opened, L"Failed to set stdin handle information with error %s.")
                   : storeAndLogError(result, opened, L"Failed to create stdin pipe with error %s.");
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
    return storeAndLogError(result, {false, exitCode.error}, L"Failed to get DCT process exit code with error %s.");
  }
  if (exitCode.value != 0) {
    return storeAndLogError(result, {false, exitCode.value}, L"DCT process failed with error %s.");
  }
  return true;
}

/// Runs the child to its end, and finishes the reader when it has ended by itself.
/// \return whether its exit code was 0.
bool runChild(const std::wstring& command, const std::wstring& folder, Pipes& pipes, PipeReader& reader,
              CORE::PropertyBag& result) {
  QueryChild child;
  const platform::Status started =
      child.start(command, folder, {pipes.input.read.get(), pipes.output.write.get(), pipes.error.write.get()});
  // The child has its own copies of its ends. With ours open the reader would never see the end of the pipes, and the
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
  return checkExitCode(child, result);
}

}  // namespace

bool runQueryCommand(const std::wstring& command, const std::wstring& folder, CORE::PropertyBag& result,
                     QueryOutput& output) {
  Pipes pipes;
  if (!openPipes(pipes, result)) {
    return false;
  }
  PipeReader reader(std::move(pipes.output.read), std::move(pipes.error.read));
  const bool succeeded = runChild(command, folder, pipes, reader, result);
  reader.finish();  // a child that did not end by itself has been ended by now
  output.errors = reader.takeErrors();
  if (!succeeded) {
    if (!reader.output().empty()) {
      CORE::log(CORE::kDebug, L"dct_common::runDctCommand(): The failed command wrote: %S", reader.output());
    }
    return false;
  }
  output.text = reader.takeOutput();
  CORE::log(CORE::kTrace,
            L"dct_common::runDctCommand(): Retrieved the following output from calling DCT with command '%s' - '%S'.",
            command, output.text);
  return true;
}
