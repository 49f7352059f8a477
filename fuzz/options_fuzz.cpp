#include <getopt.h>

#include <algorithm>
#include <array>

#include "fuzz/fuzz.h"
#include "main/getopt_long_only.h"

// Command lines, one argument on each line. Those without a single "-" must give the same result as the scanner of the
// C library.

namespace {

using Arguments = std::vector<const char*>;
using Steps = std::vector<std::pair<int, const char*>>;  // values and arguments

constexpr std::array<LongOption, 4> kOptions = {{{"url", 1}, {"urls", 2}, {"proxy", 3}, {"pac", 4}}};

/// Scans with the program's scanner.
Steps scan(Arguments& arguments, OptionScan& state) {
  Steps steps;
  state.printErrors = false;
  int longIndex = -1;
  for (int value = 0; (value = getopt_long_only(state, arguments, kOptions, longIndex)) != kOptionsEnd;) {
    FUZZ_CHECK((value == kOptionError) == (state.argument == nullptr));
    FUZZ_CHECK(value == kOptionError || kOptions.at(static_cast<std::size_t>(longIndex)).value == value);
    steps.emplace_back(value, state.argument);
    FUZZ_CHECK(steps.size() < arguments.size());
  }
  return steps;
}

/// Scans with the C library's scanner.
Steps scanByPeer(Arguments& arguments) {
  std::array<option, kOptions.size() + 1> options{};  // the last one ends them
  std::transform(kOptions.begin(), kOptions.end(), options.begin(), [](const LongOption& one) {
    return option{one.name, required_argument, nullptr, one.value};
  });
  Steps steps;
  opterr = 0;
  optind = 0;  // starts anew
  auto* const vector = const_cast<char* const*>(arguments.data());
  const auto count = static_cast<int>(arguments.size());
  for (int value = 0; (value = getopt_long(count, vector, "", options.data(), nullptr)) != -1;) {
    steps.emplace_back(value, value == '?' ? nullptr : optarg);
  }
  return steps;
}

}  // namespace

void fuzz::target(std::string_view input) {
  const std::vector<std::string> lines = fuzz::split(input, '\n');
  Arguments original = {"mdDCT"};
  for (const std::string& line : lines) {
    original.push_back(line.c_str());
  }
  Arguments arguments = original;
  OptionScan state;
  const Steps steps = scan(arguments, state);
  FUZZ_CHECK(state.nextIndex >= 1 && static_cast<std::size_t>(state.nextIndex) <= arguments.size());
  FUZZ_CHECK(arguments.front() == original.front());
  FUZZ_CHECK(std::is_permutation(arguments.begin(), arguments.end(), original.begin(), original.end()));

  const auto isShort = [](const char* text) { return text[0] == '-' && text[1] != '-' && text[1] != '\0'; };
  if (std::none_of(original.begin(), original.end(), isShort)) {
    FUZZ_CHECK(steps == scanByPeer(original));
    FUZZ_CHECK(arguments == original && state.nextIndex == optind);
  }
}
