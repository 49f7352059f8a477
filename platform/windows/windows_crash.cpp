#include "platform/windows/windows_crash.h"

#include <array>
#include <bit>
#include <cstddef>
#include <iterator>

#include "platform/windows/native.h"
#include "platform/windows/throw_in_thread.h"

// After windows.h, which it needs.
#include <dbghelp.h>

namespace platform {

static_assert(kExceptionAccessViolation == EXCEPTION_ACCESS_VIOLATION);
static_assert(kExceptionInPageError == EXCEPTION_IN_PAGE_ERROR);
static_assert(kExceptionIllegalInstruction == EXCEPTION_ILLEGAL_INSTRUCTION);
static_assert(kExceptionIntegerDivideByZero == EXCEPTION_INT_DIVIDE_BY_ZERO);
static_assert(kExceptionIntegerOverflow == EXCEPTION_INT_OVERFLOW);
static_assert(kExceptionPrivilegedInstruction == EXCEPTION_PRIV_INSTRUCTION);
static_assert(kExceptionStackOverflow == EXCEPTION_STACK_OVERFLOW);
static_assert(kExceptionHeapCorruption == static_cast<std::uint32_t>(STATUS_HEAP_CORRUPTION));
static_assert(kExitCodeFailFast == static_cast<std::uint32_t>(STATUS_STACK_BUFFER_OVERRUN));
static_assert(kMiniDumpNormal == MiniDumpNormal && kMiniDumpWithDataSegs == MiniDumpWithDataSegs);

namespace {

// The codes of this compiler's C++ exceptions: "GCC" in the three low bytes, the exception's kind in the high one.
constexpr DWORD kCompilerMask = 0x00FFFFFF;
constexpr DWORD kCompilerMark = 0x00474343;

struct Installed {
  CrashFilter filter = nullptr;
  void (*thrower)() = nullptr;
  LPTOP_LEVEL_EXCEPTION_FILTER before = nullptr;
};
constinit Installed installed;

LONG WINAPI onException(EXCEPTION_POINTERS* pointers) {
  const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
  if ((record.ExceptionCode & kCompilerMask) == kCompilerMark) {
    // A C++ exception that nobody catches. The run-time library's own filter makes the throw return, which calls
    // std::terminate.
    return installed.before != nullptr ? installed.before(pointers) : EXCEPTION_CONTINUE_SEARCH;
  }
  const CrashInfo info{record.ExceptionCode, std::bit_cast<std::uintptr_t>(record.ExceptionAddress),
                       ::GetCurrentThreadId(), pointers};
  const bool mayGoOn = (record.ExceptionFlags & EXCEPTION_NONCONTINUABLE) == 0;
  if (installed.filter(info) == CrashAction::kThrow && mayGoOn &&
      throwInThread(*pointers->ContextRecord, installed.thrower)) {
    return EXCEPTION_CONTINUE_EXECUTION;
  }
  // The process ends at once, because an orderly end would wait for locks that the failing thread may hold.
  ::TerminateProcess(::GetCurrentProcess(), record.ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}

// Handles the overflow of a division before anybody else does. The filter that the run-time library installs around
// every thread would make the thread continue with the same instruction, for ever.
LONG WINAPI onAnyException(EXCEPTION_POINTERS* pointers) {
  return pointers->ExceptionRecord->ExceptionCode == EXCEPTION_INT_OVERFLOW ? onException(pointers)
                                                                            : EXCEPTION_CONTINUE_SEARCH;
}

struct DbgHelp {
  decltype(&::MiniDumpWriteDump) writeDump = nullptr;
  decltype(&::StackWalk64) stackWalk = nullptr;
  decltype(&::SymInitialize) symInitialize = nullptr;
  decltype(&::SymFromAddr) symFromAddr = nullptr;
  decltype(&::SymFunctionTableAccess64) functionTableAccess = nullptr;
  decltype(&::SymGetModuleBase64) moduleBase = nullptr;
};
constinit DbgHelp dbgHelp;

/// Finds a function of the library. Returns false, with the reason in the last error, when the library has none of that
/// name.
template <class Function>
bool find(HMODULE library, const char* name, Function& function) {
  const FARPROC found = ::GetProcAddress(library, name);
  function = std::bit_cast<Function>(found);
  return found != nullptr;
}

std::wstring hex(DWORD64 number) {
  std::wstring digits;
  for (; number != 0 || digits.empty(); number /= 16) {
    digits.insert(digits.begin(), L"0123456789abcdef"[number % 16]);
  }
  return L"0x" + digits;
}

/// Returns the name of the function, or else of the module, that holds the address.
StackFrame frameAt(DWORD64 address) {
  constexpr std::size_t kMaxNameCharacters = 512;
  alignas(SYMBOL_INFO) std::array<std::byte, sizeof(SYMBOL_INFO) + kMaxNameCharacters> memory{};
  auto* const symbol = ::new (memory.data()) SYMBOL_INFO{};
  symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
  symbol->MaxNameLen = kMaxNameCharacters;
  DWORD64 offset = 0;
  if (dbgHelp.symFromAddr(::GetCurrentProcess(), address, &offset, symbol) && symbol->NameLen != 0) {
    const char* const name = symbol->Name;
    return std::wstring(name, name + symbol->NameLen) + L"+" + hex(offset);
  }
  const DWORD64 base = dbgHelp.moduleBase(::GetCurrentProcess(), address);
  std::array<wchar_t, MAX_PATH> path{};
  if (base == 0 ||
      ::GetModuleFileNameW(std::bit_cast<HMODULE>(base), path.data(), static_cast<DWORD>(path.size())) == 0) {
    return hex(address);
  }
  const std::wstring_view module = path.data();
  return std::wstring(module.substr(module.find_last_of(L'\\') + 1)) + L"+" + hex(address - base);
}

}  // namespace

void WindowsCrash::SetUnhandledExceptionFilter(CrashFilter filter, void (*thrower)()) {
  const bool isFirst = installed.filter == nullptr;
  installed.filter = filter;
  installed.thrower = thrower;
  if (isFirst) {
    ::AddVectoredExceptionHandler(1, onAnyException);
  }
  const auto before = ::SetUnhandledExceptionFilter(onException);
  if (before != onException) {
    installed.before = before;
  }
}

Status WindowsCrash::loadDbgHelp() {
  const std::lock_guard lock(mutex_);
  if (!loaded_) {
    const HMODULE library = ::LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const Status status = statusOf(library != nullptr && find(library, "MiniDumpWriteDump", dbgHelp.writeDump) &&
                                   find(library, "StackWalk64", dbgHelp.stackWalk) &&
                                   find(library, "SymInitialize", dbgHelp.symInitialize) &&
                                   find(library, "SymFromAddr", dbgHelp.symFromAddr) &&
                                   find(library, "SymFunctionTableAccess64", dbgHelp.functionTableAccess) &&
                                   find(library, "SymGetModuleBase64", dbgHelp.moduleBase));
    if (!status) {
      return status;
    }
    loaded_ = true;
  }
  return {true, kErrorSuccess};
}

Status WindowsCrash::MiniDumpWriteDump(NativeHandle file, std::uint32_t type, const CrashInfo* info) {
  const std::lock_guard lock(mutex_);
  MINIDUMP_EXCEPTION_INFORMATION exception{};
  if (info != nullptr) {
    exception.ThreadId = info->threadId;
    exception.ExceptionPointers = static_cast<EXCEPTION_POINTERS*>(info->exceptionPointers);
  }
  return statusOf(dbgHelp.writeDump(::GetCurrentProcess(), ::GetCurrentProcessId(), file,
                                    static_cast<MINIDUMP_TYPE>(type), info != nullptr ? &exception : nullptr, nullptr,
                                    nullptr));
}

std::vector<StackFrame> WindowsCrash::walkStack(const CrashInfo* info, std::size_t most) {
  const std::lock_guard lock(mutex_);
  CONTEXT context{};
  if (info != nullptr) {
    context = *static_cast<EXCEPTION_POINTERS*>(info->exceptionPointers)->ContextRecord;
  } else {
    ::RtlCaptureContext(&context);
  }
  static const bool hasSymbols = dbgHelp.symInitialize(::GetCurrentProcess(), nullptr, TRUE) != FALSE;
  STACKFRAME64 frame{};
  frame.AddrPC = {context.Rip, 0, AddrModeFlat};
  frame.AddrStack = {context.Rsp, 0, AddrModeFlat};
  frame.AddrFrame = {context.Rbp, 0, AddrModeFlat};
  std::vector<StackFrame> frames;
  while (hasSymbols && frames.size() < most &&
         dbgHelp.stackWalk(IMAGE_FILE_MACHINE_AMD64, ::GetCurrentProcess(), ::GetCurrentThread(), &frame, &context,
                           nullptr, dbgHelp.functionTableAccess, dbgHelp.moduleBase, nullptr) &&
         frame.AddrPC.Offset != 0) {
    frames.push_back(frameAt(frame.AddrPC.Offset));
  }
  return frames;
}

}  // namespace platform
