#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kNormalPriorityClass = 0x20;  ///< NORMAL_PRIORITY_CLASS

void closeArgumentVector(wchar_t** arguments);

/// The argument vector of CommandLineToArgvW, freed with LocalFree.
using ArgumentVector = UniqueHandle<NullHandleTraits<wchar_t**, closeArgumentVector>>;

/// The two ends of an anonymous pipe.
struct Pipe {
  KernelHandle read;
  KernelHandle write;
};

/// The redirections of a child (STARTF_USESTDHANDLES). Handles are lent for the call; both null: no redirection and
/// a zeroed STARTUPINFOW of which only the size is set. The child's standard error is always null when redirecting.
struct StandardHandles {
  NativeHandle input = nullptr;
  NativeHandle output = nullptr;
};

/// PROCESS_INFORMATION with its two handles owned.
struct ProcessInformation {
  KernelHandle process;
  KernelHandle thread;
  std::uint32_t processId = 0;
  std::uint32_t threadId = 0;
};

/// Processes, their command lines and pipes. Every operation is one platform call of that name; any thread may call.
class Processes {
 public:
  virtual ~Processes() = default;

  virtual std::wstring GetCommandLineW() = 0;
  /// Splits a command line; `count` is the number of elements (0 on failure).
  virtual Result<ArgumentVector> CommandLineToArgvW(const std::wstring& commandLine, int& count) = 0;
  virtual void LocalFree(wchar_t** arguments) = 0;

  virtual NativeHandle GetCurrentProcess() = 0;
  virtual std::uint32_t GetCurrentProcessId() = 0;
  virtual std::uint32_t GetCurrentThreadId() = 0;
  /// The session a process runs in.
  virtual Result<std::uint32_t> ProcessIdToSessionId(std::uint32_t processId) = 0;

  /// Starts a child without application name and security attributes, in the parent's environment.
  /// \param currentDirectory  the child's working folder.
  virtual Result<ProcessInformation> CreateProcessW(const std::wstring& commandLine, bool inheritHandles,
                                                    std::uint32_t creationFlags, const std::wstring& currentDirectory,
                                                    const StandardHandles& standardHandles) = 0;
  virtual Status TerminateProcess(NativeHandle process, std::uint32_t exitCode) = 0;
  virtual Result<std::uint32_t> GetExitCodeProcess(NativeHandle process) = 0;

  /// An unnamed job without limits.
  virtual Result<KernelHandle> CreateJobObjectW() = 0;
  virtual Status AssignProcessToJobObject(NativeHandle job, NativeHandle process) = 0;
  virtual Status TerminateJobObject(NativeHandle job, std::uint32_t exitCode) = 0;

  /// An anonymous pipe of the default size; both handles are inheritable when asked.
  virtual Result<Pipe> CreatePipe(bool inheritable) = 0;
  /// value: the bytes that a read would get at once. A pipe whose other end is gone and that is drained fails with
  /// ERROR_BROKEN_PIPE (109).
  virtual Result<std::uint32_t> PeekNamedPipe(NativeHandle pipe) = 0;

  /// Lets the calling thread rest for at least that many milliseconds.
  virtual void Sleep(std::uint32_t milliseconds) = 0;
};

}  // namespace platform
