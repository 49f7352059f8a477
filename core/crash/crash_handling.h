#pragma once

namespace CORE {

/// Handles a failure that nothing else catches: a structured exception (a crash) or std::terminate. The process logs in
/// FATAL lines what happened and where, and writes a minidump of its first failure. Then it ends with a code that is no
/// exit code of a run: the code of the exception, or that of a fail-fast after std::terminate.
///
/// Once, a failure of the code (such as a read of address 0) on the run's own thread becomes a coreException at the
/// place where it happened instead. The stage that failed then ends with its exit code, and the run with its ordinary
/// clean-up. Exhausted stacks, damaged heaps and failures on other threads end the process.
///
/// Threads: the handlers run on the thread that failed. The report of a crash (log lines, stack, minidump) is made on a
/// thread of its own, CrashReporter's, while the failed thread waits; after 30 seconds the process ends without it.
/// After std::terminate the failed thread logs the exception and its own stack, and the reporting thread writes the
/// minidump.
class crashHandling {
 public:
  /// Reads the settings of dumps. Never throws. The run's thread calls it, before install().
  static void loadSettings() noexcept;

  /// Installs the handlers of structured exceptions and of std::terminate, and starts the reporting thread. Reads the
  /// settings when loadSettings() has not. Never throws. The calling thread becomes the run's own.
  static void install() noexcept;

  /// Waits, at most 30 seconds, when another thread has crashed: the process ends as soon as that crash is reported.
  /// Returns at once when there is no crash. The run's thread calls it at its end, so that the run does not end the
  /// process with an exit code while the report is being made.
  static void waitForReport() noexcept;
};

}  // namespace CORE
