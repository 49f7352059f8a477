#pragma once

namespace CORE {

/// What the process does about a failure that nothing else catches: it tells what happened and where in FATAL lines,
/// writes a minidump about the first one, and then ends with a code that is no exit code of a run (the exception's own;
/// that of a fail-fast after std::terminate).
///
/// A failure of the code (as a read of address 0) on the run's own thread becomes a coreException in the place where it
/// happened, once, so that the stage that failed ends with its exit code and the run with its ordinary clean-up.
/// Exhausted stacks, damaged heaps and failures on other threads end the process.
///
/// The reporting is done by a thread of its own. When that takes longer than 30 seconds, the process ends without it.
class crashHandling {
 public:
  /// Reads the settings of dumps. Never throws; the run's thread, before install().
  static void loadSettings() noexcept;

  /// Installs the handlers of structured exceptions and of std::terminate, and makes the reporting thread. Reads the
  /// settings when nobody has. Never throws. The calling thread becomes the run's own.
  static void install() noexcept;

  /// When another thread has crashed, which ends the process as soon as that is reported: waits for this end, at most
  /// 30 seconds. Returns at once when nothing has crashed. The run's thread, at its end.
  static void waitForReport() noexcept;
};

}  // namespace CORE
