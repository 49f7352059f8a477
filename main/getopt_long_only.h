#pragma once

#include <span>
#include <string>

// A scanner for long options. The rule of prefixes: behind "--" a prefix of a name is enough when it fits one name only
// ("--ur" is "--url"); behind a single "-" only the whole name counts ("-url").

/// A long option. Every option takes a required argument; there are no single-letter options.
struct LongOption {
  const char* name;
  int value;  ///< the scanner's result for it
};

/// The state of a scan. Each command line that is scanned takes a new object.
struct OptionScan {
  int nextIndex = 1;                ///< the element that is read next
  bool printErrors = true;          ///< messages go to the standard error stream
  int unrecognizedCharacter = '?';  ///< the character behind the "-" of an unknown option; 0 for one with "--"
  const char* argument = nullptr;   ///< the argument of the option returned last; points into the vector
  int firstNonOption = 1;           ///< the elements that were stepped over begin here ...
  int lastNonOption = 1;            ///< ... and end before this one
};

inline constexpr int kOptionError = '?';  ///< the scanner's result for a bad option
inline constexpr int kOptionsEnd = -1;    ///< the scanner's result when no option is left

/// Returns the value of the next option, kOptionError after a message, or kOptionsEnd.
///
/// - An element that begins with "-" or "--" is an option. Its name ends at an "=" if there is one.
/// - Behind "--" the name may be a prefix that fits one option only. The empty prefix fits every option; a whole name
///   means its own option, whatever else it is a prefix of. Behind a single "-" only a whole name counts.
/// - The option's argument is the text behind "=", which may be empty. Without "=" it is the next element, whatever
///   that begins with.
/// - The element "--" ends the options. The elements "-" and "" are no options.
/// - The message about a missing argument has the dashes as they were typed and the whole name. The other messages have
///   the element as it was typed.
/// - Elements that are no options are stepped over. They are moved behind the options and "--".
///
/// One thread per scan. Throws nothing but std::bad_alloc, for a message.
/// \param arguments  the vector, program name first; its elements are moved while the scan goes on.
/// \param longIndex  receives the position of the option in `options`; not changed when there is none.
/// Source: the GNU C library manual, "Parsing Program Options". It differs in the prefixes, which are for "--" only.
int getopt_long_only(OptionScan& scan, std::span<const char*> arguments, std::span<const LongOption> options,
                     int& longIndex);
