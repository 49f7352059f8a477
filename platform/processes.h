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

/// The standard handles of a child (STARTF_USESTDHANDLES), which stay the caller's. When all are null the child gets a
/// STARTUPINFOW of zeros with its size. Otherwise set all of them: in place of one that is null, Windows gives the
/// child a handle of its console.
struct StandardHandles {
  NativeHandle input = nullptr;
  NativeHandle output = nullptr;
  NativeHandle error = nullptr;
};

/// PROCESS_INFORMATION, which owns its two handles.
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
  /// Splits a command line.
  /// \param count  receives the number of arguments; 0 on failure.
  virtual Result<ArgumentVector> CommandLineToArgvW(const std::wstring& commandLine, int& count) = 0;
  virtual void LocalFree(wchar_t** arguments) = 0;

  virtual NativeHandle GetCurrentProcess() = 0;
  virtual std::uint32_t GetCurrentProcessId() = 0;
  virtual std::uint32_t GetCurrentThreadId() = 0;
  /// Returns the number of the session in which a process runs.
  virtual Result<std::uint32_t> ProcessIdToSessionId(std::uint32_t processId) = 0;

  /// Starts a child in the parent's environment, without an application name and security attributes.
  /// \param currentDirectory  the child's working folder.
  virtual Result<ProcessInformation> CreateProcessW(const std::wstring& commandLine, bool inheritHandles,
                                                    std::uint32_t creationFlags, const std::wstring& currentDirectory,
                                                    const StandardHandles& standardHandles) = 0;
  virtual Status TerminateProcess(NativeHandle process, std::uint32_t exitCode) = 0;
  virtual Result<std::uint32_t> GetExitCodeProcess(NativeHandle process) = 0;

  /// Makes a job without a name and limits.
  virtual Result<KernelHandle> CreateJobObjectW() = 0;
  virtual Status AssignProcessToJobObject(NativeHandle job, NativeHandle process) = 0;
  virtual Status TerminateJobObject(NativeHandle job, std::uint32_t exitCode) = 0;

  /// Makes an anonymous pipe.
  /// \param inheritable  whether children inherit both handles.
  /// \param bytes  how much the pipe should hold, which Windows takes as a suggestion; 0 for its default, 4096 bytes.
  virtual Result<Pipe> CreatePipe(bool inheritable, std::uint32_t bytes) = 0;
  /// Returns the bytes that a read would get at once. Fails with kErrorBrokenPipe when the pipe is empty and its other
  /// end is closed.
  virtual Result<std::uint32_t> PeekNamedPipe(NativeHandle pipe) = 0;

  /// Suspends the calling thread for at least that many milliseconds.
  virtual void Sleep(std::uint32_t milliseconds) = 0;
};

}  // namespace platform
