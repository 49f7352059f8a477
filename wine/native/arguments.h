#pragma once

#include <string>
#include <vector>

namespace native {

/// Returns the arguments of this process without the program's own name, split as CommandLineToArgvW splits them.
std::vector<std::wstring> arguments();

/// Returns the text in UTF-8.
std::string narrow(const std::wstring& text);

/// Writes one line "program: text" to the standard error stream.
void complain(const char* program, const std::string& text);

}  // namespace native
