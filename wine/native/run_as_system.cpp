// run_as_system PROGRAM ARGUMENT...
//
// Runs an unmodified program as if its user were the local system account. Before the program's first instruction, this
// launcher patches EqualSid in the memory of the program, so that EqualSid returns 1.
//
// The environment variable MDDCT_PATCH=DLL!FUNCTION=VALUE patches one more function, which then returns that 32-bit
// value. With "crash" as the value, the first instruction of the function becomes an illegal one.
//
// The program gets its part of the command line unchanged, and the launcher ends with the program's exit code. When the
// launcher itself fails, it ends with exit code 125 and writes one line to the standard error stream.

#include <windows.h>

#include <array>
#include <cstring>
#include <exception>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "wine/native/arguments.h"

namespace {

constexpr int kLauncherFailed = 125;

/// Throws `message` with the last error number of Windows when a step failed.
void demand(bool succeeded, const std::string& message) {
  if (!succeeded) {
    throw std::runtime_error(message + ", error " + std::to_string(::GetLastError()));
  }
}

/// Returns the command line of this process from its first argument on.
std::wstring programsCommandLine() {
  const std::wstring line = ::GetCommandLineW();
  bool quoted = false;
  std::size_t at = 0;
  for (; at < line.size() && (quoted || line[at] != L' '); ++at) {
    quoted = quoted != (line[at] == L'"');
  }
  at = line.find_first_not_of(L' ', at);
  demand(at != std::wstring::npos, "usage: run_as_system PROGRAM ARGUMENT...");
  return line.substr(at);
}

/// Patches one function of the child; `patch` is "DLL!FUNCTION=VALUE". A system DLL has the same address in both
/// processes. This function first checks that the child holds the same code there.
void applyPatch(HANDLE process, const std::string& patch) {
  std::smatch parts;
  demand(std::regex_match(patch, parts, std::regex("(.+)!(.+)=(.+)")), "not of the form DLL!FUNCTION=VALUE: " + patch);
  std::vector<unsigned char> code = {0x0F, 0x0B};  // ud2
  if (parts[3] != "crash") {
    code = {0xB8, 0, 0, 0, 0, 0xC3};  // mov eax, value; ret
    const DWORD value = std::stoul(parts[3], nullptr, 0);
    std::memcpy(code.data() + 1, &value, sizeof(value));
  }
  const HMODULE module = ::LoadLibraryA(parts[1].str().c_str());
  const FARPROC function = module == nullptr ? nullptr : ::GetProcAddress(module, parts[2].str().c_str());
  demand(function != nullptr, "no such function: " + patch);
  void* const address = reinterpret_cast<void*>(function);
  std::vector<unsigned char> present(code.size());
  SIZE_T moved = 0;
  demand(::ReadProcessMemory(process, address, present.data(), present.size(), &moved) &&
             std::memcmp(present.data(), address, present.size()) == 0,
         "the program has other code at this launcher's address of the function: " + patch);
  DWORD protection = 0;
  demand(::VirtualProtectEx(process, address, code.size(), PAGE_EXECUTE_READWRITE, &protection) &&
             ::WriteProcessMemory(process, address, code.data(), code.size(), &moved) &&
             ::VirtualProtectEx(process, address, code.size(), protection, &protection) &&
             ::FlushInstructionCache(process, address, code.size()),
         "cannot patch " + patch);
}

/// Runs the child up to the breakpoint of the loader, and returns the thread that hit it. By then the imports are
/// mapped, and no code of the program has run.
DWORD waitForLoaderBreakpoint() {
  for (;;) {
    DEBUG_EVENT event{};
    demand(::WaitForDebugEvent(&event, INFINITE), "cannot wait for the program to be loaded");
    const DWORD kind = event.dwDebugEventCode;
    demand(kind != EXIT_PROCESS_DEBUG_EVENT, "the program ended while it was being loaded");
    if (kind == EXCEPTION_DEBUG_EVENT &&
        event.u.Exception.ExceptionRecord.ExceptionCode == static_cast<DWORD>(EXCEPTION_BREAKPOINT)) {
      return event.dwThreadId;
    }
    if (kind == CREATE_PROCESS_DEBUG_EVENT || kind == LOAD_DLL_DEBUG_EVENT) {
      ::CloseHandle(kind == LOAD_DLL_DEBUG_EVENT ? event.u.LoadDll.hFile : event.u.CreateProcessInfo.hFile);
    }
    ::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, DBG_CONTINUE);
  }
}

/// Runs the program to its end with the patches in place, and returns its exit code.
DWORD runPatched(std::wstring commandLine, PROCESS_INFORMATION& child) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  demand(::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, DEBUG_ONLY_THIS_PROCESS, nullptr,
                          nullptr, &startup, &child),
         "cannot start " + native::narrow(commandLine));
  const DWORD threadId = waitForLoaderBreakpoint();
  applyPatch(child.hProcess, "advapi32.dll!EqualSid=1");
  std::array<char, 256> extraPatch{};
  if (::GetEnvironmentVariableA("MDDCT_PATCH", extraPatch.data(), static_cast<DWORD>(extraPatch.size())) > 0) {
    applyPatch(child.hProcess, extraPatch.data());
  }
  ::DebugSetProcessKillOnExit(FALSE);
  ::ContinueDebugEvent(child.dwProcessId, threadId, DBG_CONTINUE);
  demand(::DebugActiveProcessStop(child.dwProcessId), "cannot detach from the program");
  DWORD exitCode = 0;
  demand(::WaitForSingleObject(child.hProcess, INFINITE) == WAIT_OBJECT_0 &&
             ::GetExitCodeProcess(child.hProcess, &exitCode),
         "cannot get the program's exit code");
  return exitCode;
}

}  // namespace

int main() {
  PROCESS_INFORMATION child{};
  try {
    return static_cast<int>(runPatched(programsCommandLine(), child));
  } catch (const std::exception& error) {
    native::complain("run_as_system", error.what());
    ::TerminateProcess(child.hProcess, kLauncherFailed);
    return kLauncherFailed;
  }
}
