#pragma once

#include "main/exit_code.h"

/// One whole run: account check, mutex, command line, collection, upload, clean-up. Returns the exit code of the
/// process. Call it on the main thread, once per process, with the platform installed and the logger started. Blocks
/// until the upload has ended, without limit of its own. Never throws: an exception ends the run with the code of the
/// stage it happened in.
ExitCode runProgram();
