#include "core/crash/crash_handling.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>

#include "core/base/exception.h"
#include "core/crash/crash_reporter.h"
#include "core/crash/crash_settings.h"
#include "core/crash/minidump_file.h"
#include "core/format/error_text.h"
#include "core/format/format.h"
#include "core/log/log.h"
#include "core/log/log_context.h"
#include "core/log/logger.h"
#include "platform/crash.h"
#include "platform/platform.h"
#include "platform/processes.h"

namespace CORE {
namespace {

using platform::CrashAction;
using platform::CrashInfo;

// The code with which std::terminate ends the process: that of a fail-fast, which is no exit code of a run.
constexpr std::uint32_t kFailFast = platform::kExitCodeFailFast;

constexpr std::size_t kMaxFrames = 64;

// The time for which a second crash, and the end of the run, wait for the report of the first crash.
constexpr std::chrono::seconds kReportTimeout{30};
constexpr std::uint32_t kCheckInterval = 10;  // milliseconds

void report(const CrashInfo* info) noexcept;

/// The state of the crash handling. The run's thread makes it, once; it is never destroyed. What the failing and the
/// reporting thread change is atomic; the rest is set before the handlers are installed. Of the thread ids, 0 is none.
struct CrashState {
  CrashSettings settings;
  bool settingsLoaded = false;
  CrashReporter reporter{report};
  std::uint32_t runThread = 0;
  /// The thread whose crash is being handled. When that crash ends the process, it is not reset.
  std::atomic<std::uint32_t> handlingThread{0};
  std::atomic<std::uint32_t> reportingThread{0};  ///< the reporting thread, while it works
  std::atomic<bool> dbgHelpLoaded{false};         ///< stacks can be walked
  std::atomic<bool> dumpTried{false};
  std::atomic<bool> thrownOnce{false};  ///< a crash of the run's thread has become an exception
  // The exception that throwStructuredException() throws. Set and read by the run's thread.
  std::uint32_t code = 0;
  std::uintptr_t address = 0;
};

constinit std::atomic<CrashState*> crashState{nullptr};

CrashState& madeState() {
  if (crashState.load() == nullptr) {
    crashState.store(new CrashState);
  }
  return *crashState.load();
}

/// Makes the calling thread the one whose crash is handled; waits while another thread's is.
/// \return false after kReportTimeout, and at once when the handling of a crash has itself crashed.
bool claimHandling(CrashState& state, std::uint32_t thread) {
  const auto limit = std::chrono::steady_clock::now() + kReportTimeout;
  do {
    std::uint32_t holder = 0;
    if (state.handlingThread.compare_exchange_strong(holder, thread)) {
      return true;
    }
    if (holder == thread || state.reportingThread.load() == thread) {
      return false;
    }
    platform::current().processes.Sleep(kCheckInterval);
  } while (std::chrono::steady_clock::now() < limit);
  return false;
}

// --- the report: on the reporting thread

/// Logs the call stack of a crash.
/// \param info  null: of the calling thread.
void logStack(const CrashInfo* info) {
  std::uint32_t number = 0;
  for (const platform::StackFrame& frame : platform::current().crash.walkStack(info, kMaxFrames)) {
    log(kFatal, L"crashHandling::logStack(): %2u %s", number++, frame);
  }
}

MinidumpOutcome dump(CrashState& state, const CrashInfo* info, const platform::Status& loaded) {
  if (state.dumpTried.exchange(true)) {
    return {false, L"this is not the first crash of the process"};
  }
  return loaded ? writeMinidump(state.settings, info)
                : MinidumpOutcome{false, L"DbgHelp cannot be loaded: " + numberedErrorText(loaded.error)};
}

void logDump(CrashState& state, const CrashInfo* info, const platform::Status& loaded) {
  const MinidumpOutcome outcome = dump(state, info, loaded);
  if (outcome.written) {
    log(kFatal, L"crashHandling::logDump(): Minidump: %s", outcome.text);
  } else {
    log(kFatal, L"crashHandling::logDump(): No minidump: %s", outcome.text);
  }
}

/// Makes one part of a report. Whatever fails in it, the other parts are still made. The text names report, whose parts
/// most of them are.
template <class Part>
void attempt(const char* name, const Part& part) noexcept {
  try {
    part();
  } catch (...) {
    log(kFatal, L"crashHandling::report(): Unable to give the %S", name);
  }
}

/// Reports a crash: what happened, the stack, a minidump.
/// \param info  null: std::terminate, whose own thread logs the rest.
void report(const CrashInfo* info) noexcept {
  CrashState& state = *crashState.load();
  state.reportingThread.store(platform::current().processes.GetCurrentThreadId());
  setLogContext(L"crash");
  if (info != nullptr) {
    // The text names onUnhandledException, which has caught the crash.
    log(kFatal, L"crashHandling::onUnhandledException(): Structured exception 0x%x at 0x%p in thread %u", info->code,
        info->address, info->threadId);
  }
  const platform::Status loaded = platform::current().crash.loadDbgHelp();
  state.dbgHelpLoaded.store(loaded.ok);
  if (info != nullptr && loaded) {
    attempt("stack", [info] { logStack(info); });
  }
  corelogger::instance().flush();  // before the dump, too: a dump may take long, and may hang
  attempt("minidump", [&] { logDump(state, info, loaded); });
  corelogger::instance().flush();
  state.reportingThread.store(0);
}

// --- structured exceptions: on the thread that failed

/// Whether the run's own thread can go on after such an exception. After an exhausted stack or a damaged heap it
/// cannot.
bool isFailureOfCode(std::uint32_t code) {
  constexpr std::array kCodes = {platform::kExceptionAccessViolation,     platform::kExceptionInPageError,
                                 platform::kExceptionIllegalInstruction,  platform::kExceptionPrivilegedInstruction,
                                 platform::kExceptionIntegerDivideByZero, platform::kExceptionIntegerOverflow};
  return std::find(kCodes.begin(), kCodes.end(), code) != kCodes.end();
}

/// The run's thread goes on here after its failure, as if the instruction that failed had called this function.
[[noreturn]] void throwStructuredException() {
  const CrashState& state = *crashState.load();
  throw coreException(format(L"Structured exception 0x%x at 0x%p", state.code, state.address));
}

/// Handles a crash on the thread that failed. It logs nothing itself, because it may have no stack left, or hold the
/// log's locks.
CrashAction onUnhandledException(const CrashInfo& info) {
  CrashState& state = *crashState.load();
  if (!claimHandling(state, info.threadId)) {
    return CrashAction::kEndProcess;
  }
  // A report that has not ended in time may still read this thread's state, so that the thread must not go on.
  const bool reported = state.reporter.report(&info);
  if (!reported || info.threadId != state.runThread || !isFailureOfCode(info.code) || state.thrownOnce.exchange(true)) {
    return CrashAction::kEndProcess;
  }
  state.code = info.code;
  state.address = info.address;
  state.handlingThread.store(0);
  return CrashAction::kThrow;
}

// --- std::terminate: on the thread that failed

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

/// The thread is sound, so it logs its exception and its stack itself. It asks the reporting thread for the minidump
/// only, which loads DbgHelp, too.
[[noreturn]] void onTerminate() noexcept {
  auto& processes = platform::current().processes;
  CrashState* const state = crashState.load();
  if (state == nullptr || claimHandling(*state, processes.GetCurrentThreadId())) {
    attempt("exception",
            [] { log(kFatal, L"crashHandling::onTerminate(): Unhandled exception: %s", unhandledText()); });
    if (state != nullptr && state->reporter.report(nullptr) && state->dbgHelpLoaded.load()) {
      attempt("stack", [] { logStack(nullptr); });
    }
    corelogger::instance().flush();
  }
  // Not std::abort: this runtime's shows a message box in a program without a console, and nobody would ever close it.
  processes.TerminateProcess(processes.GetCurrentProcess(), kFailFast);
  std::abort();
}

}  // namespace

void crashHandling::loadSettings() noexcept {
  try {
    CrashState& state = madeState();
    state.settings = CrashSettings::read();
    state.settingsLoaded = true;
  } catch (...) {
    // Out of memory: no dump is written, because none has a folder without the settings.
  }
}

void crashHandling::install() noexcept {
  std::set_terminate(onTerminate);
  try {
    CrashState& state = madeState();
    if (!state.settingsLoaded) {
      loadSettings();
    }
    state.runThread = platform::current().processes.GetCurrentThreadId();
    state.thrownOnce.store(false);
    state.dumpTried.store(false);
    state.handlingThread.store(0);
    state.reporter.start();
    platform::current().crash.SetUnhandledExceptionFilter(onUnhandledException, throwStructuredException);
  } catch (...) {
    // Out of memory: a structured exception ends the process as it does by default.
  }
}

void crashHandling::waitForReport() noexcept {
  const auto limit = std::chrono::steady_clock::now() + kReportTimeout;
  const CrashState* const state = crashState.load();
  while (state != nullptr && state->handlingThread.load() != 0 && std::chrono::steady_clock::now() < limit) {
    platform::current().processes.Sleep(kCheckInterval);
  }
}

}  // namespace CORE
