#pragma once

#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace CORE {

/// The channel for system messages ("sysMessageToConsole"): the console of the process that started this one, for a
/// person who runs the program by hand. A named mutex keeps the lines of programs that share a console apart. The
/// owner's lock guards the object.
class LogConsole {
 public:
  /// Attaches to the console and opens it.
  platform::Status open();
  bool isOpen() const { return static_cast<bool>(console_); }
  /// Writes lines. They are lost without an error when the mutex is not free within a second or the console does not
  /// take them.
  /// \return the error of a wait for the mutex that failed; the channel is closed then.
  platform::Status write(const std::wstring& lines);

 private:
  platform::KernelHandle console_;
  platform::KernelHandle mutex_;
};

}  // namespace CORE
