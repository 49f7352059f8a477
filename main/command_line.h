#pragma once

#include <string>

/// What the command line asks for.
struct options {
  std::string url;  ///< UTF-8; empty until the option is read
};

/// The log line, at INFO, that follows an unusable command line. kept: there is no operation PrintUsage.
inline constexpr wchar_t kUsage[] = L"PrintUsage(): Usage:\r\nmdDCT.exe -url \"<url>\"";

/// Reads the command line. How an option may be written and abbreviated: see getopt_long_only.h.
///
/// \param argv  the whole command line, program name first; not changed.
/// \param out   receives the value of the option "url", which may be empty; the last one counts. On false it holds what
///              was read before the fault.
/// \return true when the option "url" is there and no other option is. An option that is unknown or has no argument is
///         logged at ERROR; a command line without any option is not logged.
/// \throws CORE::coreException "to_mstr Failed" when an argument is not valid UTF-16.
bool lParseCommandLine(int argc, wchar_t** argv, options& out);
