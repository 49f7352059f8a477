#include "main/getopt_long_only.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "core/format/format.h"

namespace {

constexpr int kNoOption = -1;
constexpr int kAmbiguous = -2;

const char*& at(std::span<const char*> arguments, int index) { return arguments[static_cast<std::size_t>(index)]; }

void print(const OptionScan& scan, const std::string& message) {
  if (scan.printErrors) {
    std::fputs(message.c_str(), stderr);
  }
}

bool isOption(std::string_view argument) { return argument.size() > 1 && argument.front() == '-'; }

/// Moves the elements that were stepped over behind the options that were scanned after them.
void permute(OptionScan& scan, std::span<const char*> arguments) {
  const auto begin = arguments.begin();
  std::rotate(begin + scan.firstNonOption, begin + scan.lastNonOption, begin + scan.nextIndex);
  scan.firstNonOption += scan.nextIndex - scan.lastNonOption;
  scan.lastNonOption = scan.nextIndex;
}

/// Moves nextIndex to the next option. False when there is none: it is then at the first element that is no option.
bool findOption(OptionScan& scan, std::span<const char*> arguments) {
  const int count = static_cast<int>(arguments.size());
  permute(scan, arguments);
  while (scan.nextIndex < count && !isOption(at(arguments, scan.nextIndex))) {
    ++scan.nextIndex;
  }
  scan.lastNonOption = scan.nextIndex;
  if (scan.nextIndex < count && std::string_view(at(arguments, scan.nextIndex)) != "--") {
    return true;
  }
  if (scan.nextIndex < count) {  // at "--", which belongs in front of them, too
    ++scan.nextIndex;
    permute(scan, arguments);
  }
  scan.nextIndex = scan.firstNonOption;
  scan.lastNonOption = scan.firstNonOption;
  return false;
}

/// Returns the position of the option with that name, or with `prefixAllowed` of the only option that the name is a
/// prefix of; kNoOption when none fits, kAmbiguous when several do.
int findName(std::string_view name, bool prefixAllowed, std::span<const LongOption> options) {
  int found = kNoOption;
  for (std::size_t i = 0; i < options.size(); ++i) {
    const std::string_view candidate = options[i].name;
    if (candidate == name) {
      return static_cast<int>(i);
    }
    if (prefixAllowed && candidate.starts_with(name)) {
      found = found == kNoOption ? static_cast<int>(i) : kAmbiguous;
    }
  }
  return found;
}

}  // namespace

int getopt_long_only(OptionScan& scan, std::span<const char*> arguments, std::span<const LongOption> options,
                     int& longIndex) {
  scan.argument = nullptr;
  if (arguments.size() < 2 || !findOption(scan, arguments)) {
    return kOptionsEnd;
  }
  const char* const program = arguments.front();
  const char* const text = at(arguments, scan.nextIndex++);
  const bool doubleDash = text[1] == '-';
  const std::string_view option = std::string_view(text).substr(doubleDash ? 2 : 1);
  const std::size_t equals = option.find('=');
  const int found = findName(option.substr(0, equals), doubleDash, options);
  if (found == kAmbiguous) {
    print(scan, CORE::formatNarrow("%s: ambiguous option '%s'\n", program, text));
    return kOptionError;
  }
  if (found == kNoOption) {
    scan.unrecognizedCharacter = doubleDash ? 0 : static_cast<unsigned char>(text[1]);
    print(scan, CORE::formatNarrow("%s: unrecognized option '%s'\n", program, text));
    return kOptionError;
  }
  longIndex = found;
  if (equals != std::string_view::npos) {
    scan.argument = option.data() + equals + 1;
  } else if (scan.nextIndex < static_cast<int>(arguments.size())) {
    scan.argument = at(arguments, scan.nextIndex++);
  } else {
    const std::string shown = std::string(doubleDash ? "--" : "-") + options[static_cast<std::size_t>(found)].name;
    print(scan, CORE::formatNarrow("%s: option '%s' requires an argument\n", program, shown));
    return kOptionError;
  }
  return options[static_cast<std::size_t>(found)].value;
}
