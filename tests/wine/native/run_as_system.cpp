// run_as_system [--not-system] [--patch DLL!FUNCTION=VALUE]... PROGRAM ARGUMENT...
//
// Runs an unmodified program as if its user were the local system account: before the program's first instruction,
// EqualSid in the child's memory is made to return 1. --patch lets further functions return a fixed 32-bit value.
// The program gets its command line character by character; its exit code is this one's. Failures of the launcher
// itself end with 125 and one line on the standard error stream.

#include <windows.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "tests/wine/native/arguments.h"

namespace {

constexpr const char* kProgram = "run_as_system";
constexpr int kLauncherFailed = 125;

struct Patch {
  std::wstring dll;
  std::string function;
  std::uint32_t value = 0;
};

int fail(const std::string& text, DWORD error = ::GetLastError()) {
  native::complain(kProgram, text, error);
  return kLauncherFailed;
}

bool parsePatch(const std::wstring& text, Patch& patch) {
  const std::size_t mark = text.find(L'!');
  const std::size_t equals = text.find(L'=', mark == std::wstring::npos ? 0 : mark);
  if (mark == std::wstring::npos || equals == std::wstring::npos) {
    return false;
  }
  patch.dll = text.substr(0, mark);
  patch.function = native::narrow(text.substr(mark + 1, equals - mark - 1));
  wchar_t* end = nullptr;
  patch.value = static_cast<std::uint32_t>(std::wcstoul(text.c_str() + equals + 1, &end, 0));
  return *end == L'\0' && end != text.c_str() + equals + 1;
}

/// Reads the options in front of the program. Gives the number of arguments to skip, or 0 after a complaint.
std::size_t parseOptions(std::vector<Patch>& patches) {
  const std::vector<std::wstring> arguments = native::arguments();
  patches = {{L"advapi32.dll", "EqualSid", 1}};
  std::size_t at = 0;
  for (; at < arguments.size() && arguments[at].starts_with(L"--"); ++at) {
    Patch patch;
    if (arguments[at] == L"--not-system") {
      patches.erase(patches.begin());
    } else if (arguments[at] == L"--patch" && at + 1 < arguments.size() && parsePatch(arguments[at + 1], patch)) {
      patches.push_back(patch);
      ++at;
    } else {
      fail("bad option " + native::narrow(arguments[at]) + "; --patch takes DLL!FUNCTION=VALUE", 0);
      return 0;
    }
  }
  if (at == arguments.size()) {
    fail("usage: run_as_system [--not-system] [--patch DLL!FUNCTION=VALUE]... PROGRAM ARGUMENT...", 0);
    return 0;
  }
  return at + 1;
}

/// Writes "mov eax, value; ret" over the function in the child. A system DLL has the same address in both processes;
/// that the child holds the same code there is checked first.
bool applyPatch(HANDLE process, const Patch& patch) {
  const std::string name = native::narrow(patch.dll) + "!" + patch.function;
  const HMODULE module = ::LoadLibraryW(patch.dll.c_str());
  const FARPROC function = module == nullptr ? nullptr : ::GetProcAddress(module, patch.function.c_str());
  if (function == nullptr) {
    fail("no such function: " + name);
    return false;
  }
  void* const address = reinterpret_cast<void*>(function);
  std::array<unsigned char, 6> code = {0xB8, 0, 0, 0, 0, 0xC3};
  std::memcpy(code.data() + 1, &patch.value, sizeof(patch.value));
  std::array<unsigned char, 6> present{};
  SIZE_T moved = 0;
  if (!::ReadProcessMemory(process, address, present.data(), present.size(), &moved) ||
      std::memcmp(present.data(), address, present.size()) != 0) {
    fail("the program has not loaded " + name + " where this launcher has it");
    return false;
  }
  DWORD protection = 0;
  if (!::VirtualProtectEx(process, address, code.size(), PAGE_EXECUTE_READWRITE, &protection) ||
      !::WriteProcessMemory(process, address, code.data(), code.size(), &moved) ||
      !::VirtualProtectEx(process, address, code.size(), protection, &protection) ||
      !::FlushInstructionCache(process, address, code.size())) {
    fail("cannot patch " + name);
    return false;
  }
  return true;
}

/// Lets the child run up to the loader's breakpoint: the imports are mapped and none of its own code has run.
bool waitForLoaderBreakpoint(DWORD& threadId) {
  for (;;) {
    DEBUG_EVENT event{};
    if (!::WaitForDebugEvent(&event, INFINITE)) {
      fail("cannot wait for the program to be loaded");
      return false;
    }
    threadId = event.dwThreadId;
    if (event.dwDebugEventCode == EXCEPTION_DEBUG_EVENT &&
        event.u.Exception.ExceptionRecord.ExceptionCode == static_cast<DWORD>(EXCEPTION_BREAKPOINT)) {
      return true;
    }
    if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) {
      fail("the program ended while it was loaded", event.u.ExitProcess.dwExitCode);
      return false;
    }
    const HANDLE file = event.dwDebugEventCode == CREATE_PROCESS_DEBUG_EVENT ? event.u.CreateProcessInfo.hFile
                        : event.dwDebugEventCode == LOAD_DLL_DEBUG_EVENT     ? event.u.LoadDll.hFile
                                                                             : nullptr;
    if (file != nullptr) {
      ::CloseHandle(file);
    }
    ::ContinueDebugEvent(event.dwProcessId, event.dwThreadId, DBG_CONTINUE);
  }
}

bool startPatched(std::wstring commandLine, const std::vector<Patch>& patches, PROCESS_INFORMATION& child) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, DEBUG_ONLY_THIS_PROCESS, nullptr, nullptr,
                        &startup, &child)) {
    fail("cannot start " + native::narrow(commandLine));
    return false;
  }
  DWORD threadId = 0;
  bool ready = waitForLoaderBreakpoint(threadId);
  for (std::size_t i = 0; ready && i < patches.size(); ++i) {
    ready = applyPatch(child.hProcess, patches[i]);
  }
  if (!ready) {
    ::TerminateProcess(child.hProcess, kLauncherFailed);
    return false;
  }
  ::DebugSetProcessKillOnExit(FALSE);
  ::ContinueDebugEvent(child.dwProcessId, threadId, DBG_CONTINUE);
  if (!::DebugActiveProcessStop(child.dwProcessId)) {
    fail("cannot detach from the program");
    ::TerminateProcess(child.hProcess, kLauncherFailed);
    return false;
  }
  return true;
}

}  // namespace

int main() {
  std::vector<Patch> patches;
  const std::size_t skipped = parseOptions(patches);
  if (skipped == 0) {
    return kLauncherFailed;
  }
  PROCESS_INFORMATION child{};
  if (!startPatched(native::commandLineFrom(skipped), patches, child)) {
    return kLauncherFailed;
  }
  DWORD exitCode = 0;
  if (::WaitForSingleObject(child.hProcess, INFINITE) != WAIT_OBJECT_0 ||
      !::GetExitCodeProcess(child.hProcess, &exitCode)) {
    return fail("cannot learn the program's exit code");
  }
  return static_cast<int>(exitCode);
}
