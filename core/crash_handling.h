#pragma once

namespace CORE {

/// What the process does about a failure that nothing else catches.
class crashHandling {
 public:
  /// From here on a call of std::terminate (an exception that leaves a thread or a function that must not throw) logs
  /// one FATAL line with the exception's text, flushes the logger and ends the process. Never throws; any thread.
  static void install() noexcept;
};

}  // namespace CORE
