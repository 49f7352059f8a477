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

// What the process ends with: the code of a fail-fast, which is no exit code of a run.
constexpr std::uint32_t kFailFast = platform::kExitCodeFailFast;

constexpr std::size_t kMaxFrames = 64;

// How long a second crash, and the end of the run, wait for the report of the first.
constexpr std::chrono::seconds kReportTimeout{30};
constexpr std::uint32_t kRest = 10;  // milliseconds

void report(const CrashInfo* info) noexcept;

/// Made once and never destroyed. Thread ids: 0 is none.
struct Handling {
  CrashSettings settings;
  bool settingsLoaded = false;
  CrashReporter reporter{report};
  std::uint32_t runThread = 0;
  std::atomic<std::uint32_t> handlingThread{
      0};  ///< the thread whose crash is being handled; it keeps it when the process ends
  std::atomic<std::uint32_t> reportingThread{0};  ///< the reporting thread, while it works
  std::atomic<bool> canWalk{false};               ///< DbgHelp is there
  std::atomic<bool> dumpTried{false};
  std::atomic<bool> redirected{false};
  std::uint32_t code = 0;  ///< of the exception that is thrown on
  std::uintptr_t address = 0;
};

constinit std::atomic<Handling*> handling{nullptr};

Handling& made() {
  if (handling.load() == nullptr) {
    handling.store(new Handling);
  }
  return *handling.load();
}

/// Whether the calling thread may handle its crash: one at a time. Not when handling a crash has crashed.
bool claimHandling(Handling& h, std::uint32_t thread) {
  const auto limit = std::chrono::steady_clock::now() + kReportTimeout;
  do {
    std::uint32_t holder = 0;
    if (h.handlingThread.compare_exchange_strong(holder, thread)) {
      return true;
    }
    if (holder == thread || h.reportingThread.load() == thread) {
      return false;
    }
    platform::current().processes.Sleep(kRest);
  } while (std::chrono::steady_clock::now() < limit);
  return false;
}

// --- the report

void logStack(const CrashInfo* info) {
  std::uint32_t number = 0;
  for (const platform::StackFrame& frame : platform::current().crash.walkStack(info, kMaxFrames)) {
    log(kFatal, L"crashHandling::logStack(): %2u %s", number++, frame);
  }
}

MinidumpOutcome dump(Handling& h, const CrashInfo* info, const platform::Status& loaded) {
  if (h.dumpTried.exchange(true)) {
    return {false, L"this is not the first crash of the process"};
  }
  return loaded ? writeMinidump(h.settings, info)
                : MinidumpOutcome{false, L"DbgHelp cannot be loaded: " + systemErrorText(loaded.error)};
}

void logDump(Handling& h, const CrashInfo* info, const platform::Status& loaded) {
  const MinidumpOutcome outcome = dump(h, info, loaded);
  if (outcome.written) {
    log(kFatal, L"crashHandling::logDump(): Minidump: %s", outcome.text);
  } else {
    log(kFatal, L"crashHandling::logDump(): No minidump: %s", outcome.text);
  }
}

/// Does one part of the report; whatever fails in it, the rest is done.
template <class Part>
void attempt(const char* name, const Part& part) noexcept {
  try {
    part();
  } catch (...) {
    log(kFatal, L"crashHandling::report(): Unable to give the %S", name);
  }
}

/// Runs on the reporting thread. The log is flushed before the dump too, which may take long.
void report(const CrashInfo* info) noexcept {
  Handling& h = *handling.load();
  h.reportingThread.store(platform::current().processes.GetCurrentThreadId());
  setLogContext(L"crash");
  if (info != nullptr) {
    log(kFatal, L"crashHandling::onUnhandledException(): Structured exception 0x%x at 0x%p in thread %u", info->code,
        info->address, info->threadId);
  }
  const platform::Status loaded = platform::current().crash.loadDbgHelp();
  h.canWalk.store(loaded.ok);
  if (info != nullptr && loaded) {
    attempt("stack", [info] { logStack(info); });
  }
  corelogger::instance().flush();
  attempt("minidump", [&] { logDump(h, info, loaded); });
  corelogger::instance().flush();
  h.reportingThread.store(0);
}

// --- structured exceptions

/// What the run's own thread can go on from.
bool isFailureOfCode(std::uint32_t code) {
  constexpr std::array kCodes = {platform::kExceptionAccessViolation,     platform::kExceptionInPageError,
                                 platform::kExceptionIllegalInstruction,  platform::kExceptionPrivilegedInstruction,
                                 platform::kExceptionIntegerDivideByZero, platform::kExceptionIntegerOverflow};
  return std::find(kCodes.begin(), kCodes.end(), code) != kCodes.end();
}

/// Where the run's thread goes on after its failure.
[[noreturn]] void throwStructuredException() {
  const Handling& h = *handling.load();
  throw coreException(format(L"Structured exception 0x%x at 0x%p", h.code, h.address));
}

/// On the thread that failed, which logs nothing itself: it may have no stack left, or hold the log's locks.
CrashAction onUnhandledException(const CrashInfo& info) {
  Handling& h = *handling.load();
  if (!claimHandling(h, info.threadId)) {
    return CrashAction::kEndProcess;
  }
  // A report that is late may still read this thread's state, which must stay as it is until the process ends.
  const bool reported = h.reporter.report(&info);
  if (!reported || info.threadId != h.runThread || !isFailureOfCode(info.code) || h.redirected.exchange(true)) {
    return CrashAction::kEndProcess;
  }
  h.code = info.code;
  h.address = info.address;
  h.handlingThread.store(0);
  return CrashAction::kThrow;
}

// --- std::terminate

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
  auto& processes = platform::current().processes;
  Handling* const h = handling.load();
  if (h == nullptr || claimHandling(*h, processes.GetCurrentThreadId())) {
    attempt("exception",
            [] { log(kFatal, L"crashHandling::onTerminate(): Unhandled exception: %s", unhandledText()); });
    if (h != nullptr && h->reporter.report(nullptr) && h->canWalk.load()) {
      attempt("stack", [] { logStack(nullptr); });
    }
    corelogger::instance().flush();
  }
  // std::abort of this runtime shows a message box in a program without a console, and nobody would ever close it.
  processes.TerminateProcess(processes.GetCurrentProcess(), kFailFast);
  std::abort();
}

}  // namespace

void crashHandling::loadSettings() noexcept {
  try {
    Handling& h = made();
    h.settings = CrashSettings::read();
    h.settingsLoaded = true;
  } catch (...) {
    // Out of memory: without settings no dump has a folder.
  }
}

void crashHandling::install() noexcept {
  std::set_terminate(onTerminate);
  try {
    Handling& h = made();
    if (!h.settingsLoaded) {
      loadSettings();
    }
    h.runThread = platform::current().processes.GetCurrentThreadId();
    h.redirected.store(false);
    h.dumpTried.store(false);
    h.handlingThread.store(0);
    h.reporter.start();
    platform::current().crash.SetUnhandledExceptionFilter(onUnhandledException, throwStructuredException);
  } catch (...) {
    // Out of memory: a structured exception ends the process as it does by default.
  }
}

void crashHandling::waitForReport() noexcept {
  const auto limit = std::chrono::steady_clock::now() + kReportTimeout;
  const Handling* const h = handling.load();
  while (h != nullptr && h->handlingThread.load() != 0 && std::chrono::steady_clock::now() < limit) {
    platform::current().processes.Sleep(kRest);
  }
}

}  // namespace CORE
