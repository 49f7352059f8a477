#pragma once

#include "platform/processes.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsProcesses final : public Processes {
 public:
  std::wstring GetCommandLineW() override;
  Result<ArgumentVector> CommandLineToArgvW(const std::wstring& commandLine, int& count) override;
  void LocalFree(wchar_t** arguments) override;
  NativeHandle GetCurrentProcess() override;
  std::uint32_t GetCurrentProcessId() override;
  std::uint32_t GetCurrentThreadId() override;
  Result<std::uint32_t> ProcessIdToSessionId(std::uint32_t processId) override;
  Result<ProcessInformation> CreateProcessW(const std::wstring& commandLine, bool inheritHandles,
                                            std::uint32_t creationFlags, const std::wstring& currentDirectory,
                                            const StandardHandles& standardHandles) override;
  Status TerminateProcess(NativeHandle process, std::uint32_t exitCode) override;
  Result<std::uint32_t> GetExitCodeProcess(NativeHandle process) override;
  Result<KernelHandle> CreateJobObjectW() override;
  Status AssignProcessToJobObject(NativeHandle job, NativeHandle process) override;
  Status TerminateJobObject(NativeHandle job, std::uint32_t exitCode) override;
  Result<Pipe> CreatePipe(bool inheritable, std::uint32_t bytes) override;
  Result<std::uint32_t> PeekNamedPipe(NativeHandle pipe) override;
  void Sleep(std::uint32_t milliseconds) override;
};

}  // namespace platform
