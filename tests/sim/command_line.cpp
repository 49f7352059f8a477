// CommandLineToArgvW: how Windows splits a command line.
#include "tests/sim/processes.h"
#include "tests/sim/text.h"

namespace sim {
namespace {

bool isBlank(wchar_t character) { return character == L' ' || character == L'\t'; }

/// The program's name: up to the next quote when it is quoted, else up to the next blank; backslashes mean nothing.
std::wstring takeProgram(const std::wstring& text, std::size_t& at) {
  const bool quoted = text[at] == L'"';
  const std::size_t start = at + (quoted ? 1 : 0);
  at = start;
  while (at < text.size() && (quoted ? text[at] != L'"' : codeOf(text[at]) > L' ')) {
    ++at;
  }
  std::wstring name = text.substr(start, at - start);
  at += quoted && at < text.size() ? 1u : 0u;
  return name;
}

/// One argument: 2n backslashes and a quote are n backslashes and a switch of quoting, 2n+1 are n and a literal quote;
/// two quotes inside a quoted part are one literal quote and go on quoted no more.
std::wstring takeArgument(const std::wstring& text, std::size_t& at) {
  std::wstring result;
  int quotes = 0;
  while (at < text.size() && (quotes % 2 != 0 || !isBlank(text[at]))) {
    std::size_t backslashes = 0;
    for (; at < text.size() && text[at] == L'\\'; ++at) {
      ++backslashes;
    }
    if (at >= text.size() || text[at] != L'"') {
      result.append(backslashes, L'\\');
      if (backslashes == 0) {
        result += text[at++];
      }
      continue;
    }
    result.append(backslashes / 2, L'\\');
    ++at;
    if (backslashes % 2 != 0) {
      result += L'"';
    } else if (quotes % 2 != 0 && at < text.size() && text[at] == L'"') {
      result += L'"';
      ++at;
      quotes = 0;
    } else {
      ++quotes;
    }
  }
  return result;
}

}  // namespace

std::vector<std::wstring> splitCommandLine(const std::wstring& text, const std::wstring& programPath) {
  if (text.empty()) {
    return {programPath};
  }
  std::size_t at = 0;
  std::vector<std::wstring> arguments{takeProgram(text, at)};
  while (true) {
    while (at < text.size() && isBlank(text[at])) {
      ++at;
    }
    if (at >= text.size()) {
      return arguments;
    }
    arguments.push_back(takeArgument(text, at));
  }
}

}  // namespace sim
