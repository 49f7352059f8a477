#include "tests/wine/native/standin/background.h"

#include <windows.h>

#include <array>
#include <stdexcept>

#include "tests/wine/native/arguments.h"
#include "tests/wine/native/standin/call.h"

namespace standin {
namespace {

constexpr int kTries = 6000;
constexpr DWORD kPause = 10;  // milliseconds

void startCopy(const std::wstring& arguments, bool inherit, DWORD flags) {
  std::array<wchar_t, 32768> self{};
  ::GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size()));
  std::wstring line = L"\"" + std::wstring(self.data()) + L"\" --background " + arguments;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION child{};
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, inherit ? TRUE : FALSE, flags, nullptr, nullptr,
                        &startup, &child)) {
    throw std::runtime_error("cannot start the copy, error " + std::to_string(::GetLastError()));
  }
  ::CloseHandle(child.hThread);
  ::CloseHandle(child.hProcess);
}

bool append(const std::wstring& bundle) {
  const HANDLE file = ::CreateFileW(bundle.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) {
    return false;
  }
  const std::vector<char> more(1 << 20, 'g');
  DWORD written = 0;
  const BOOL done = ::WriteFile(file, more.data(), static_cast<DWORD>(more.size()), &written, nullptr);
  ::CloseHandle(file);
  return done && written == more.size();
}

bool spoil(const std::wstring& deed, const std::wstring& bundle) {
  return deed == L"grow" ? append(bundle) : ::DeleteFileW(bundle.c_str()) != FALSE;
}

}  // namespace

void startPipeHolder(std::uint64_t milliseconds) { startCopy(L"hold " + std::to_wstring(milliseconds), true, 0); }

void startBundleSpoiler(const std::string& deed, std::uint64_t delay, const std::wstring& bundle) {
  startCopy(native::wide(deed) + L" " + std::to_wstring(delay) + L" " + std::to_wstring(::GetCurrentProcessId()) +
                L" \"" + bundle + L"\"",
            false, DETACHED_PROCESS);
}

int runInBackground(const std::vector<std::wstring>& arguments, const std::string& recordFile) {
  if (arguments.size() == 2 && arguments[0] == L"hold") {
    ::Sleep(static_cast<DWORD>(std::stoul(arguments[1])));
    record(recordFile, "hold", "released");
    return 0;
  }
  if (arguments.size() != 4) {
    return 64;
  }
  const HANDLE script = ::OpenProcess(SYNCHRONIZE, FALSE, std::stoul(arguments[2]));
  ::WaitForSingleObject(script, INFINITE);
  ::CloseHandle(script);
  ::Sleep(static_cast<DWORD>(std::stoul(arguments[1])));
  bool done = spoil(arguments[0], arguments[3]);
  for (int i = 1; !done && i < kTries && ::GetLastError() == ERROR_SHARING_VIOLATION; ++i) {
    ::Sleep(kPause);
    done = spoil(arguments[0], arguments[3]);
  }
  record(recordFile, native::narrow(arguments[0]), done ? "done" : "failed");
  return done ? 0 : 1;
}

}  // namespace standin
