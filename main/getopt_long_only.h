#pragma once

#include <span>
#include <string>

/// A long option. Every option takes a required argument; there are no single-letter options.
struct LongOption {
  const char* name;
  int value;  ///< what the scanner returns for it
};

/// Where a scan stands. One object per command line that is scanned, fresh at the start.
struct OptionScan {
  int nextIndex = 1;                ///< the element that is looked at next
  bool printErrors = true;          ///< whether messages go to the standard error stream
  int unrecognizedCharacter = '?';  ///< the first character after a single "-" that was no option
  const char* argument = nullptr;   ///< the argument of the option returned last; points into the vector
  int firstNonOption = 1;           ///< the elements stepped over so far: from here ...
  int lastNonOption = 1;            ///< ... up to here, exclusive
};

inline constexpr int kOptionError = '?';  ///< the scanner's result for a bad option
inline constexpr int kOptionsEnd = -1;    ///< the scanner's result when no option is left

/// Returns the value of the next option, kOptionError after a message, or kOptionsEnd.
///
/// An argument that begins with "-" or "--" names an option, up to an "=" if there is one. After "--" a prefix that
/// fits one name is enough, after "-" only the exact name counts. The argument of an option is the text after "=",
/// which may be empty, or else the next element, whatever it looks like. "--" ends the options; it and the options move
/// in front of every element that is none ("-" alone and the empty text are none either).
///
/// \param arguments  the vector, program name first; permuted as the scan goes on.
/// \param longIndex  receives the position of the option in `options`; kept when there is none.
/// One thread per scan; never throws but for a message that finds no memory.
/// Source: the GNU C library manual, "Parsing Program Options", of which the abbreviations are kept to "--" only.
int getopt_long_only(OptionScan& scan, std::span<const char*> arguments, std::span<const LongOption> options,
                     int& longIndex);
