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

platform::CrashInfo reported;  // what the filter got

// Volatile pointers, so that the compiler cannot foresee the failures.
int* volatile nowhere = nullptr;
void (*volatile wild)() = nullptr;
void (*volatile leaf)(int*) = [](int* place) { *place = 1; };

// The functions that fail. Each has one object to unwind.
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

// The dump and the stack of a failure, and a failure at the first instruction of a function, are tested in
// crash.test.mjs with the shipped program.
void crash() {
  platform::Crash& crash = platform::current().crash;
  const auto filter = [](const platform::CrashInfo& info) {
    reported = info;
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
    that(caught && unwound == 1 && reported.code == one.code && reported.threadId == ::GetCurrentThreadId(),
         std::string("crash: an exception comes of a failure ") + one.name);
  }
  const auto file =
      platform::current().files.CreateFileW(L"self.dmp", platform::kGenericWrite, 0, platform::kCreateNew, 0);
  that(crash.loadDbgHelp().ok && crash.MiniDumpWriteDump(file.value.get(), platform::kMiniDumpNormal, nullptr).ok &&
           crash.walkStack(nullptr, 2).size() == 2,
       "crash: a dump and a stack without a failure");
}

}  // namespace check
