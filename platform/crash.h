#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

// Codes of structured exceptions that the running code itself raises by failing (STATUS_...).
inline constexpr std::uint32_t kExceptionAccessViolation = 0xC0000005;
inline constexpr std::uint32_t kExceptionInPageError = 0xC0000006;
inline constexpr std::uint32_t kExceptionIllegalInstruction = 0xC000001D;
inline constexpr std::uint32_t kExceptionIntegerDivideByZero = 0xC0000094;
inline constexpr std::uint32_t kExceptionIntegerOverflow = 0xC0000095;
inline constexpr std::uint32_t kExceptionPrivilegedInstruction = 0xC0000096;
inline constexpr std::uint32_t kExceptionStackOverflow = 0xC00000FD;
inline constexpr std::uint32_t kExceptionHeapCorruption = 0xC0000374;

/// The exit code of a process that has stopped itself at once (fail-fast): STATUS_STACK_BUFFER_OVERRUN.
inline constexpr std::uint32_t kExitCodeFailFast = 0xC0000409;

// Types of a minidump (MINIDUMP_TYPE).
inline constexpr std::uint32_t kMiniDumpNormal = 0x0;
inline constexpr std::uint32_t kMiniDumpWithDataSegs = 0x1;

/// A structured exception that nobody handled, as the filter sees it.
struct CrashInfo {
  std::uint32_t code = 0;
  std::uintptr_t address = 0;
  std::uint32_t threadId = 0;
  void* exceptionPointers = nullptr;  ///< EXCEPTION_POINTERS; valid until the filter returns
};

/// What happens to the thread that raised the exception.
enum class CrashAction : std::uint8_t {
  kEndProcess,  ///< the process ends with the exception's code
  kThrow,       ///< the thread goes on as if it had called `thrower` where it failed
};

/// Decides what happens after a crash. It runs on the thread that failed, whose stack may be nearly full.
using CrashFilter = CrashAction (*)(const CrashInfo& info);

/// One frame of a stack: "function+0x12" or, without symbols, "module+0x1234".
using StackFrame = std::wstring;

/// What the platform offers to a process that fails. An operation that is one platform call has that call's name. Any
/// thread may call.
class Crash {
 public:
  virtual ~Crash() = default;

  /// Installs the filter for exceptions that nobody handled.
  /// \param thrower  a function that throws; CrashAction::kThrow calls it.
  virtual void SetUnhandledExceptionFilter(CrashFilter filter, void (*thrower)()) = 0;

  /// Loads DbgHelp, from System32 only; the two operations below need it. It is loaded once and stays loaded.
  virtual Status loadDbgHelp() = 0;
  /// Writes a minidump of this process.
  /// \param info  the crash; null dumps the process as it is, without an exception.
  virtual Status MiniDumpWriteDump(NativeHandle file, std::uint32_t type, const CrashInfo* info) = 0;
  /// Walks a stack. It loads symbols, which takes time and memory.
  /// \param info  the crash whose thread's stack is walked; null walks the calling thread's.
  /// \param most  the greatest number of frames.
  /// \return the frames, innermost first; empty when the stack cannot be walked.
  virtual std::vector<StackFrame> walkStack(const CrashInfo* info, std::size_t most) = 0;
};

}  // namespace platform
