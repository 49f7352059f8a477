#include "tests/wine/native/arguments.h"

#include <windows.h>

// After windows.h, which it needs.
#include <shellapi.h>

#include <algorithm>
#include <cstdio>

namespace native {
namespace {

bool isBlank(wchar_t character) { return character == L' ' || character == L'\t'; }

// Where the argument that starts at `begin` ends. Quotes keep blanks inside; no argument skipped here needs an escaped
// quote.
std::size_t endOfArgument(const std::wstring& line, std::size_t begin) {
  bool quoted = false;
  std::size_t at = begin;
  for (; at < line.size() && (quoted || !isBlank(line[at])); ++at) {
    quoted = quoted != (line[at] == L'"');
  }
  return at;
}

}  // namespace

std::vector<std::wstring> arguments() {
  int count = 0;
  wchar_t** const vector = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  std::vector<std::wstring> result;
  for (int i = 1; i < count; ++i) {
    result.emplace_back(vector[i]);
  }
  ::LocalFree(vector);
  return result;
}

std::wstring commandLineFrom(std::size_t skipped) {
  const std::wstring line = ::GetCommandLineW();
  std::size_t at = 0;
  for (std::size_t i = 0; i < skipped; ++i) {
    at = endOfArgument(line, at);
    while (at < line.size() && isBlank(line[at])) {
      ++at;
    }
  }
  return line.substr(at);
}

std::wstring windowsPath(const std::wstring& path) {
  if (path.empty() || path.front() != L'/') {
    return path;
  }
  std::wstring result = L"Z:" + path;
  std::replace(result.begin(), result.end(), L'/', L'\\');
  return result;
}

std::wstring wide(const std::string& text) {
  if (text.empty()) {
    return {};
  }
  const int size = static_cast<int>(text.size());
  std::wstring result(text.size(), L'\0');
  const int length = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), size, result.data(), size);
  result.resize(static_cast<std::size_t>(std::max(length, 0)));
  return result;
}

std::string narrow(const std::wstring& text) {
  if (text.empty()) {
    return {};
  }
  const int size = static_cast<int>(text.size());
  std::string result(text.size() * 3, '\0');
  const int room = static_cast<int>(result.size());
  const int length = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), room, nullptr, nullptr);
  result.resize(static_cast<std::size_t>(std::max(length, 0)));
  return result;
}

void complain(const char* program, const std::string& text, unsigned long error) {
  if (error == 0) {
    std::fprintf(stderr, "%s: %s\n", program, text.c_str());
  } else {
    std::fprintf(stderr, "%s: %s (error %lu)\n", program, text.c_str(), error);
  }
}

}  // namespace native
