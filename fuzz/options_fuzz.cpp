#include <getopt.h>

#include <algorithm>
#include <array>
#include <set>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "main/getopt_long_only.h"

// Command lines, an argument a line. Beside the C library's scanner, which reads those without single "-" alike.

namespace {

using Arguments = std::vector<const char*>;
struct Step {
  int value;
  const char* argument;
  bool operator==(const Step&) const = default;
};

constexpr std::array<LongOption, 4> kOptions = {{{"url", 1}, {"urls", 2}, {"proxy", 3}, {"pac", 4}}};

std::vector<Step> scan(Arguments& arguments, OptionScan& state) {
  std::vector<Step> steps;
  state.printErrors = false;
  for (int longIndex = -1;;) {
    const int value = getopt_long_only(state, arguments, kOptions, longIndex);
    if (value == kOptionsEnd) {
      return steps;
    }
    FUZZ_CHECK((value == kOptionError) == (state.argument == nullptr));
    FUZZ_CHECK(value == kOptionError || kOptions.at(static_cast<std::size_t>(longIndex)).value == value);
    steps.push_back({value, state.argument});
    FUZZ_CHECK(steps.size() < arguments.size());
  }
}

std::vector<Step> scanByPeer(Arguments& arguments) {
  static const std::array<option, 5> options = {{{"url", required_argument, nullptr, 1},
                                                 {"urls", required_argument, nullptr, 2},
                                                 {"proxy", required_argument, nullptr, 3},
                                                 {"pac", required_argument, nullptr, 4},
                                                 {nullptr, 0, nullptr, 0}}};
  std::vector<Step> steps;
  opterr = 0;
  optind = 0;  // starts anew
  auto* const vector = const_cast<char* const*>(arguments.data());
  for (;;) {
    const int value = getopt_long(static_cast<int>(arguments.size()), vector, "", options.data(), nullptr);
    if (value == -1) {
      return steps;
    }
    steps.push_back({value, value == '?' ? nullptr : optarg});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> lines = fuzz::split(fuzz::bytes(data, size), '\n');
  Arguments original = {"mdDCT"};
  for (const std::string& line : lines) {
    original.push_back(line.c_str());
  }
  Arguments arguments = original;
  OptionScan state;
  const std::vector<Step> steps = scan(arguments, state);
  FUZZ_CHECK(state.nextIndex >= 1 && static_cast<std::size_t>(state.nextIndex) <= arguments.size());
  FUZZ_CHECK(arguments.front() == original.front());
  FUZZ_CHECK(std::multiset<const char*>(arguments.begin(), arguments.end()) ==
             std::multiset<const char*>(original.begin(), original.end()));

  const auto isShort = [](const char* text) { return text[0] == '-' && text[1] != '-' && text[1] != '\0'; };
  if (std::none_of(original.begin(), original.end(), isShort)) {
    Arguments permuted = original;
    FUZZ_CHECK(steps == scanByPeer(permuted));
    FUZZ_CHECK(arguments == permuted && state.nextIndex == optind);
  }
  return 0;
}
