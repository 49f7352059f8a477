#include "platform/crash.h"

#include <windows.h>

#include <array>
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

// What the filter has seen.
platform::CrashInfo seen;
std::vector<platform::StackFrame> frames;
bool dumped = false;

platform::CrashAction onFailure(const platform::CrashInfo& info) {
  platform::Crash& crash = platform::current().crash;
  seen = info;
  if (frames.empty()) {
    frames = crash.walkStack(&info, 20);
    const auto file =
        platform::current().files.CreateFileW(L"crash.dmp", platform::kGenericWrite, 0, platform::kCreateNew, 0);
    dumped = crash.MiniDumpWriteDump(file.value.get(), platform::kMiniDumpNormal, &info).ok;
  }
  return platform::CrashAction::kThrow;
}

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
  const auto place = std::bit_cast<void*>(framed);
  constexpr std::array<unsigned char, 2> kIllegal = {0x0F, 0x0B};
  ::WriteProcessMemory(::GetCurrentProcess(), place, kIllegal.data(), kIllegal.size(), nullptr);
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

std::string beginOf(const std::wstring& path) {
  const auto file = platform::current().files.CreateFileW(path, platform::kGenericRead, platform::kFileShareAll,
                                                          platform::kOpenExisting, 0);
  std::string begin(4, ' ');
  platform::current().files.ReadFile(file.value.get(), std::as_writable_bytes(std::span(begin)));
  return begin;
}

}  // namespace

void crash() {
  platform::Crash& crash = platform::current().crash;
  that(crash.loadDbgHelp().ok && crash.loadDbgHelp().ok, "crash: DbgHelp is loaded");
  crash.SetUnhandledExceptionFilter(onFailure, throwOn);
  struct Case {
    const char* name;
    void (*fail)();
    std::uint32_t code;
  };
  const Case cases[] = {
      {"inside a function", inOwnBlock, platform::kExceptionAccessViolation},
      {"two functions down", [] { framed(nowhere); }, platform::kExceptionAccessViolation},
      {"at a function's first instruction", atFirstInstruction, platform::kExceptionIllegalInstruction},
      {"by an overflow", byOverflow, platform::kExceptionIntegerOverflow},
      {"through a wild pointer", throughWildPointer, platform::kExceptionAccessViolation},
  };
  for (const Case& one : cases) {
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
  that(dumped && beginOf(L"crash.dmp") == "MDMP" && !frames.empty(), "crash: a dump and a stack of a failure");
  const auto file =
      platform::current().files.CreateFileW(L"self.dmp", platform::kGenericWrite, 0, platform::kCreateNew, 0);
  that(crash.MiniDumpWriteDump(file.value.get(), platform::kMiniDumpNormal, nullptr).ok &&
           crash.walkStack(nullptr, 2).size() == 2,
       "crash: a dump and a stack without a failure");
}

}  // namespace check
