#include "main/command_line.h"

#include <array>
#include <set>
#include <vector>

#include "core/log/log.h"
#include "core/text/convert.h"
#include "main/getopt_long_only.h"

namespace {

constexpr int kUrl = 1;
constexpr std::array<LongOption, 1> kOptions = {{{"url", kUrl}}};

std::vector<std::string> narrowArguments(int argc, wchar_t** argv) {
  std::vector<std::string> out;
  out.reserve(static_cast<std::size_t>(argc));
  for (int i = 0; i < argc; ++i) {
    out.push_back(CORE::to_mstr(argv[i], CORE::kUtf8));
  }
  return out;
}

}  // namespace

bool lParseCommandLine(int argc, wchar_t** argv, options& out) {
  const std::vector<std::string> narrow = narrowArguments(argc, argv);
  std::vector<const char*> arguments;
  arguments.reserve(narrow.size());
  for (const std::string& argument : narrow) {
    arguments.push_back(argument.c_str());
  }
  std::set<int> required = {kUrl};
  OptionScan scan;
  int longIndex = 0;
  for (;;) {
    const int value = getopt_long_only(scan, arguments, kOptions, longIndex);
    required.erase(value);
    if (value == kOptionsEnd) {
      return required.empty();
    }
    if (value != kUrl) {
      CORE::log(CORE::kError, L"lParseCommandLine(): Unrecognized argument or bad syntax: %S",
                arguments[static_cast<std::size_t>(scan.nextIndex - 1)]);
      return false;
    }
    out.url = scan.argument;
  }
}
