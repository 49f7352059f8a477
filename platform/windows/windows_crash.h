#pragma once

#include <mutex>

#include "platform/crash.h"

namespace platform {

/// The real Windows, with DbgHelp for dumps and stacks. DbgHelp takes one call at a time, so every call of it holds the
/// mutex.
class WindowsCrash final : public Crash {
 public:
  void SetUnhandledExceptionFilter(CrashFilter filter, void (*thrower)()) override;
  Status loadDbgHelp() override;
  Status MiniDumpWriteDump(NativeHandle file, std::uint32_t type, const CrashInfo* info) override;
  std::vector<StackFrame> walkStack(const CrashInfo* info, std::size_t most) override;

 private:
  std::mutex mutex_;  // the standard's: the labelled one of core/base stands above this room
  bool loaded_ = false;
};

}  // namespace platform
