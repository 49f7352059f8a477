#pragma once

#include <string>

#include "core/bag/property_bag.h"

/// Runs a command in a folder and stores what it wrote to its standard output in `output`. Output beyond 128 MiB is
/// dropped. The command's standard input is empty, and its standard error goes nowhere. Blocks; any thread.
///
/// A command that hangs is ended after 60 seconds, together with its children.
///
/// \return false when it failed: the result bag then holds the error, which has been logged, and `output` is unchanged.
///         The error code is 258 after the 60 seconds, the exit code when that is not 0, and else the number of the
///         Windows call that failed.
/// \throws what the reading of the output threw, std::bad_alloc for example.
bool runQueryCommand(const std::wstring& command, const std::wstring& folder, CORE::PropertyBag& result,
                     std::string& output);
