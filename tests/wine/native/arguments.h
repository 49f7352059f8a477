#pragma once

#include <string>
#include <vector>

namespace native {

/// The arguments of this process without the program's own, split as CommandLineToArgvW does.
std::vector<std::wstring> arguments();

/// The command line of this process from its `skipped`-th argument on (0: the program itself), character by character
/// as it was given; empty when there are not that many.
std::wstring commandLineFrom(std::size_t skipped);

/// A path as Windows takes it: a Unix path ("/tmp/x") is looked up on drive Z:, where Wine shows the host's root.
std::wstring windowsPath(const std::wstring& path);

/// UTF-8 both ways; bytes that are no UTF-8 become U+FFFD.
std::wstring wide(const std::string& text);
std::string narrow(const std::wstring& text);

/// Writes one line "program: text" to the standard error stream, with the thread's last error when it is not 0.
void complain(const char* program, const std::string& text, unsigned long error = 0);

}  // namespace native
