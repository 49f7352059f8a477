#include "platform/crash.h"

#include <windows.h>

#include <bit>
#include <string>

#include "platform/files.h"
#include "platform/platform.h"
#include "tests/wine/native/check/tap.h"

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
void writesAtOnce(int* place) { *place = 1; }
void (*volatile leaf)(int*) = writesAtOnce;
void callsOthers(int* place) {
  const Counts counts;
  leaf(place);
}
void (*volatile framed)(int*) = callsOthers;

void inOwnBlock() {
  const Counts counts;
  *nowhere = 1;
}
void atFirstInstruction() {
  const Counts counts;
  const unsigned char illegal[] = {0x0F, 0x0B};
  ::WriteProcessMemory(::GetCurrentProcess(), std::bit_cast<void*>(framed), illegal, sizeof(illegal), nullptr);
  framed(nowhere);
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

// Dumps and stacks of a failure: see the crashes of the shipped program.
void crash() {
  platform::Crash& crash = platform::current().crash;
  that(crash.loadDbgHelp().ok && crash.loadDbgHelp().ok, "crash: DbgHelp is loaded");
  const auto filter = [](const platform::CrashInfo& info) {
    seen = info;
    return platform::CrashAction::kThrow;
  };
  crash.SetUnhandledExceptionFilter(filter, throwOn);
  const struct {
    const char* name;
    void (*fail)();
    std::uint32_t code;
  } cases[] = {
      {"inside a function", inOwnBlock, platform::kExceptionAccessViolation},
      {"two functions down", [] { framed(nowhere); }, platform::kExceptionAccessViolation},
      {"at a function's first instruction", atFirstInstruction, platform::kExceptionIllegalInstruction},
      {"by an overflow", byOverflow, platform::kExceptionIntegerOverflow},
      {"through a wild pointer", throughWildPointer, platform::kExceptionAccessViolation},
  };
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
  that(crash.MiniDumpWriteDump(file.value.get(), platform::kMiniDumpNormal, nullptr).ok &&
           crash.walkStack(nullptr, 2).size() == 2,
       "crash: a dump and a stack without a failure");
}

}  // namespace check
