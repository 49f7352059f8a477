#include "platform/crash.h"

#include <windows.h>

#include <string>

#include "platform/files.h"
#include "platform/platform.h"
#include "tests/wine/programs/check/tap.h"

namespace check {
namespace {

struct Thrown {};
[[noreturn]] void throwOn() { throw Thrown(); }

int unwound = 0;
struct Counts {
  ~Counts() { ++unwound; }
};

platform::CrashInfo seen;  // by the filter

// Called by pointers that the compiler cannot see through.
int* volatile nowhere = nullptr;
void (*volatile wild)() = nullptr;
void (*volatile leaf)(int*) = [](int* place) { *place = 1; };

// Each with one object to unwind.
void inOwnBlock() {
  const Counts counts;
  *nowhere = 1;
}
void inCalledFunction() {
  const Counts counts;
  leaf(nowhere);
}
void byOverflow() {
  const Counts counts;
  ::RaiseException(platform::kExceptionIntegerOverflow, 0, 0, nullptr);
}
void throughWildPointer() {
  const Counts counts;
  wild();
}

}  // namespace

// Dumps and stacks of a failure, and one at a function's first instruction: see the crashes of the shipped program.
void crash() {
  platform::Crash& crash = platform::current().crash;
  const auto filter = [](const platform::CrashInfo& info) {
    seen = info;
    return platform::CrashAction::kThrow;
  };
  crash.SetUnhandledExceptionFilter(filter, throwOn);
  const struct {
    const char* name;
    void (*fail)();
    std::uint32_t code;
  } cases[] = {{"inside a function", inOwnBlock, platform::kExceptionAccessViolation},
               {"in a function that it calls", inCalledFunction, platform::kExceptionAccessViolation},
               {"by an overflow", byOverflow, platform::kExceptionIntegerOverflow},
               {"through a wild pointer", throughWildPointer, platform::kExceptionAccessViolation}};
  for (const auto& one : cases) {
    unwound = 0;
    bool caught = false;
    try {
      one.fail();
    } catch (const Thrown&) {
      caught = true;
    }
    that(caught && unwound == 1 && seen.code == one.code && seen.threadId == ::GetCurrentThreadId(),
         std::string("crash: thrown on is a failure ") + one.name);
  }
  const auto file =
      platform::current().files.CreateFileW(L"self.dmp", platform::kGenericWrite, 0, platform::kCreateNew, 0);
  that(crash.loadDbgHelp().ok && crash.MiniDumpWriteDump(file.value.get(), platform::kMiniDumpNormal, nullptr).ok &&
           crash.walkStack(nullptr, 2).size() == 2,
       "crash: a dump and a stack without a failure");
}

}  // namespace check
