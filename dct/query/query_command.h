#pragma once

#include <string>

#include "core/bag/property_bag.h"

/// Runs a command in a folder and hands out what it wrote to its standard output, of which more than 128 MiB is
/// dropped. Its standard input is at its end; its standard error goes nowhere. A child that takes longer than a minute
/// is ended together with its children. On false the result bag holds the error, which has been logged (258 after a
/// minute, the exit code when that is not 0), and `output` is unchanged. Blocks; any thread.
bool runQueryCommand(const std::wstring& command, const std::wstring& folder, CORE::PropertyBag& result,
                     std::string& output);
