#pragma once

#include <string>

/// What the command line asks for.
struct options {
  std::string url;  ///< UTF-8; empty until the option is seen
};

/// What the log says at INFO behind an unusable command line.
inline constexpr wchar_t kUsage[] = L"PrintUsage(): Usage:\r\nmdDCT.exe -url \"<url>\"";

/// Reads the command line. True when it is usable: it holds the option "url" (the last one counts; its value may be
/// empty) and nothing that looks like an option and is none. An unusable option is logged at ERROR; a command line
/// without any option is not. `out` holds what was read up to then.
/// \param argv  the vector of the whole command line, program name first; not changed.
/// \throws CORE::coreException "to_mstr Failed" when an argument is not valid UTF-16.
bool lParseCommandLine(int argc, wchar_t** argv, options& out);
