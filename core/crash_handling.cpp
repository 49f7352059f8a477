#include "core/crash_handling.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>

#include "core/exception.h"
#include "core/log.h"
#include "core/logger.h"
#include "platform/platform.h"
#include "platform/processes.h"

namespace CORE {
namespace {

// What the process ends with: STATUS_STACK_BUFFER_OVERRUN, the code of a fail-fast, which is no exit code of a run.
constexpr std::uint32_t kFailFast = 0xC0000409;

std::wstring unhandledText() {
  const std::exception_ptr unhandled = std::current_exception();
  if (!unhandled) {
    return L"no exception";
  }
  try {
    std::rethrow_exception(unhandled);
  } catch (...) {
    return currentExceptionText();
  }
}

[[noreturn]] void onTerminate() noexcept {
  try {
    log(kFatal, L"crashHandling::onTerminate(): Unhandled exception: %s", unhandledText());
    corelogger::instance().flush();
  } catch (...) {  // nothing is left that could be told
  }
  // std::abort of this runtime shows a message box in a program without a console, and nobody would ever close it.
  auto& processes = platform::current().processes;
  processes.TerminateProcess(processes.GetCurrentProcess(), kFailFast);
  std::abort();
}

}  // namespace

void crashHandling::install() noexcept { std::set_terminate(onTerminate); }

}  // namespace CORE
