#pragma once

#include <string>
#include <vector>

namespace native {

/// The arguments of this process without the program's own, split as CommandLineToArgvW does.
std::vector<std::wstring> arguments();

/// The text in UTF-8.
std::string narrow(const std::wstring& text);

/// Writes one line "program: text" to the standard error stream.
void complain(const char* program, const std::string& text);

}  // namespace native
