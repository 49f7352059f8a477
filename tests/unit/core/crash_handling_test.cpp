#include "core/crash_handling.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

constexpr int kAborted = 77;
const sim::LogCapture* shown = nullptr;

/// Terminates as the program would, and shows the log at the abort.
void terminate(void (*failing)() noexcept) {
  sim::Windows windows;
  sim::LogCapture log(windows);
  shown = &log;
  std::signal(SIGABRT, [](int) {
    std::fputs(shown->text().c_str(), stderr);
    std::_Exit(kAborted);
  });
  CORE::crashHandling::install();
  failing();
}

void fail() { throw std::runtime_error("boom"); }

TEST(CrashHandlingDeathTest, LogsTheExceptionAndAborts) {
  EXPECT_EXIT(terminate([]() noexcept { fail(); }), testing::ExitedWithCode(kAborted),
              "FATAL crashHandling::onTerminate\\(\\): Unhandled exception: boom");
  EXPECT_EXIT(terminate([]() noexcept { std::terminate(); }), testing::ExitedWithCode(kAborted),
              "FATAL crashHandling::onTerminate\\(\\): Unhandled exception: no exception");
}

}  // namespace
