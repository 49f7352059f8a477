#pragma once

#include <string>

namespace standin {

/// What this process was called for.
struct Call {
  std::wstring mode;            ///< "query", "collect" or "refused"
  std::wstring bundle;          ///< the file that a collection has to write
  std::wstring objection = {};  ///< why it is refused: what is out of place in the command line or around it
};

/// Judges the command line, every character of it, and what it names. The scripts must be in the working folder; a
/// bundle must have a bundle's name and lie in the temporary folder, which must exist; "-s" may be followed by
/// " -c NAME,...", then by " -dumps none|prod|sys|prod,sys".
Call thisCall();

/// Appends a line to the record: mode, outcome, working folder, kinds of standard output and error ("pipe", "none",
/// "other") and the arguments, with tabs between them. Does nothing when `file` is empty.
void record(const std::wstring& file, const std::wstring& mode, const std::wstring& outcome);

}  // namespace standin
