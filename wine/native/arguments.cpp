#include "wine/native/arguments.h"

#include <windows.h>

// After windows.h, which it needs.
#include <shellapi.h>

#include <cstdio>

namespace native {

std::vector<std::wstring> arguments() {
  int count = 0;
  wchar_t** const vector = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  const std::vector<std::wstring> result(vector + 1, vector + count);
  ::LocalFree(vector);
  return result;
}

std::string narrow(const std::wstring& text) {
  const int size = static_cast<int>(text.size());
  std::string result(text.size() * 3, '\0');
  const int room = static_cast<int>(result.size());
  const int length = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), room, nullptr, nullptr);
  result.resize(static_cast<std::size_t>(length));
  return result;
}

void complain(const char* program, const std::string& text) { std::fprintf(stderr, "%s: %s\n", program, text.c_str()); }

}  // namespace native
