#pragma once

#include <string>

#include "core/bag/property_bag.h"

/// What a command wrote.
struct QueryOutput {
  std::string text;    ///< to its standard output, at most 128 MiB; the rest is dropped
  std::string errors;  ///< to its standard error, at most 4 KiB; the rest is dropped
};

/// Runs a command in a folder and stores what it wrote in `output`. The command's standard input is empty. Blocks; any
/// thread.
///
/// A command that hangs is ended after 60 seconds, together with its children.
///
/// \return false when it failed: the result bag then holds the error, and `output` at most the errors. Error and output
///         have been logged. The error code is 258 after the 60 seconds, the exit code when that is not 0, and else the
///         number of the Windows call that failed.
/// \throws what the reading of the output threw, std::bad_alloc for example.
bool runQueryCommand(const std::wstring& command, const std::wstring& folder, CORE::PropertyBag& result,
                     QueryOutput& output);
