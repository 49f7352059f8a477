#pragma once

#include <cstdio>

#include "platform/crash.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "tests/sim/kernel.h"

namespace sim {

/// A process that can be made to fail.
class Crash : public platform::Crash {
 public:
  explicit Crash(Kernel& kernel) : kernel_(kernel) {}

  /// Runs the filter as if the calling thread had failed at that address and nobody had handled it. Calls the installed
  /// thrower when the filter wants that, and returns when the process would end.
  CrashAction raise(std::uint32_t code, std::uintptr_t address) {
    const auto [filter, thrower] = kernel_.copyOf(installed_);
    const std::uint32_t thread = current().processes.GetCurrentThreadId();
    const auto action = filter == nullptr ? CrashAction::kEndProcess : filter({code, address, thread, nullptr});
    if (action == CrashAction::kThrow) {
      thrower();
    }
    return action;
  }

  void SetUnhandledExceptionFilter(CrashFilter filter, void (*thrower)()) override {
    kernel_.faults.note(__func__);
    kernel_.set(installed_, {filter, thrower});
  }
  Status loadDbgHelp() override {
    return kernel_.call(__func__, [&] { loaded_ = true; });
  }
  /// Writes "MDMP type=2 code=c0000005" to the file; the code is 0 without an exception.
  Status MiniDumpWriteDump(NativeHandle file, std::uint32_t type, const CrashInfo* info) override {
    return kernel_.callOn<Stream>(__func__, file, [&](Stream& stream, Guard& guard) {
      needLoaded();
      char text[64];
      const int length = std::snprintf(text, sizeof(text), "MDMP type=%x code=%x", type, info ? info->code : 0);
      stream.write(guard, std::as_bytes(std::span(text, static_cast<std::size_t>(length))));
      return kDone;
    });
  }
  std::vector<StackFrame> walkStack(const CrashInfo* info, std::size_t most) override {
    const auto walked = kernel_.call(__func__, [&] {
      needLoaded();
      std::vector<StackFrame> frames{info != nullptr ? L"failingFunction+0x12" : L"callingFunction+0x12",
                                     L"itsCaller+0x34", L"mdDCT.exe+0x1234"};
      frames.resize(std::min(frames.size(), most));
      return frames;
    });
    return walked.value;
  }

 private:
  void needLoaded() {
    if (!loaded_) {
      kernel_.misuse("DbgHelp is not loaded");
      throw Failure{kErrorInvalidParameter};
    }
  }

  Kernel& kernel_;
  std::pair<CrashFilter, void (*)()> installed_{nullptr, nullptr};
  bool loaded_ = false;
};

}  // namespace sim
