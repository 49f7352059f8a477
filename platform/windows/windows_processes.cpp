#include "platform/windows/windows_processes.h"

#include "platform/windows/native.h"

// After windows.h, which it needs.
#include <shellapi.h>

namespace platform {

static_assert(kNormalPriorityClass == NORMAL_PRIORITY_CLASS);
static_assert(sizeof(STARTUPINFOW) == 104);

std::wstring WindowsProcesses::GetCommandLineW() { return ::GetCommandLineW(); }

Result<ArgumentVector> WindowsProcesses::CommandLineToArgvW(const std::wstring& commandLine, int& count) {
  count = 0;
  wchar_t** const arguments = ::CommandLineToArgvW(commandLine.c_str(), &count);
  const ErrorCode error = ::GetLastError();
  if (arguments == nullptr) {
    count = 0;
  }
  return {arguments != nullptr, ArgumentVector(arguments), error};
}

void WindowsProcesses::LocalFree(wchar_t** arguments) { ::LocalFree(arguments); }

NativeHandle WindowsProcesses::GetCurrentProcess() { return ::GetCurrentProcess(); }

std::uint32_t WindowsProcesses::GetCurrentProcessId() { return ::GetCurrentProcessId(); }

std::uint32_t WindowsProcesses::GetCurrentThreadId() { return ::GetCurrentThreadId(); }

Result<std::uint32_t> WindowsProcesses::ProcessIdToSessionId(std::uint32_t processId) {
  DWORD session = 0;
  const BOOL found = ::ProcessIdToSessionId(processId, &session);
  return resultOf(found, std::uint32_t{session});
}

Result<ProcessInformation> WindowsProcesses::CreateProcessW(const std::wstring& commandLine, bool inheritHandles,
                                                            std::uint32_t creationFlags,
                                                            const std::wstring& currentDirectory,
                                                            const StandardHandles& standardHandles) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  if (standardHandles.input != nullptr || standardHandles.output != nullptr || standardHandles.error != nullptr) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = standardHandles.input;
    startup.hStdOutput = standardHandles.output;
    startup.hStdError = standardHandles.error;
  }
  std::wstring writableLine = commandLine;  // the call may write to it
  const wchar_t* const folder = currentDirectory.empty() ? nullptr : currentDirectory.c_str();
  PROCESS_INFORMATION started{};
  const BOOL created = ::CreateProcessW(nullptr, writableLine.data(), nullptr, nullptr, inheritHandles ? TRUE : FALSE,
                                        creationFlags, nullptr, folder, &startup, &started);
  const ErrorCode error = ::GetLastError();
  if (!created) {
    return {false, {}, error};
  }
  return {true,
          ProcessInformation{KernelHandle(started.hProcess), KernelHandle(started.hThread), started.dwProcessId,
                             started.dwThreadId},
          error};
}

Status WindowsProcesses::TerminateProcess(NativeHandle process, std::uint32_t exitCode) {
  return statusOf(::TerminateProcess(process, exitCode));
}

Result<std::uint32_t> WindowsProcesses::GetExitCodeProcess(NativeHandle process) {
  DWORD exitCode = 0;
  const BOOL known = ::GetExitCodeProcess(process, &exitCode);
  return resultOf(known, std::uint32_t{exitCode});
}

Result<KernelHandle> WindowsProcesses::CreateJobObjectW() {
  const HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
  const ErrorCode error = ::GetLastError();
  return {job != nullptr, KernelHandle(job), error};
}

Status WindowsProcesses::AssignProcessToJobObject(NativeHandle job, NativeHandle process) {
  return statusOf(::AssignProcessToJobObject(job, process));
}

Status WindowsProcesses::TerminateJobObject(NativeHandle job, std::uint32_t exitCode) {
  return statusOf(::TerminateJobObject(job, exitCode));
}

Result<Pipe> WindowsProcesses::CreatePipe(bool inheritable, std::uint32_t bytes) {
  SECURITY_ATTRIBUTES attributes{};
  attributes.nLength = sizeof(attributes);
  attributes.bInheritHandle = inheritable ? TRUE : FALSE;
  HANDLE read = nullptr;
  HANDLE write = nullptr;
  const BOOL created = ::CreatePipe(&read, &write, &attributes, bytes);
  const ErrorCode error = ::GetLastError();
  if (!created) {
    return {false, {}, error};
  }
  return {true, Pipe{KernelHandle(read), KernelHandle(write)}, error};
}

Result<std::uint32_t> WindowsProcesses::PeekNamedPipe(NativeHandle pipe) {
  DWORD available = 0;
  const BOOL peeked = ::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr);
  return resultOf(peeked, std::uint32_t{available});
}

void WindowsProcesses::Sleep(std::uint32_t milliseconds) { ::Sleep(milliseconds); }

}  // namespace platform
