#pragma once

#include "main/exit_code.h"

/// Makes one whole run: account check, mutex, command line, collection, upload, clean-up. Returns the exit code of the
/// process; the table of the stages and their codes is in run.cpp.
///
/// Call it on the main thread, once per process, when the platform is installed and the logger started. Blocks until
/// the upload has ended, without a time limit of its own. Never throws: an exception ends the run with the code of the
/// stage that it comes from.
ExitCode runProgram();
