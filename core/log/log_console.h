#pragma once

#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace CORE {

/// The channel for system messages: the console of the process that started this one, for whoever runs the program by
/// hand ("sysMessageToConsole"). Programs that share a console take turns by a mutex. Guarded by its owner.
class LogConsole {
 public:
  /// Joins the console.
  platform::Status open();
  bool isOpen() const { return static_cast<bool>(console_); }
  /// Writes lines. A wait for the turn that fails closes the channel, and its error is given; a console that does not
  /// take the text is nobody's trouble.
  platform::Status write(const std::wstring& lines);

 private:
  platform::KernelHandle console_;
  platform::KernelHandle mutex_;
};

}  // namespace CORE
