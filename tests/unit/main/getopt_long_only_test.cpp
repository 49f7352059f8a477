#include "main/getopt_long_only.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr LongOption kOptions[] = {{"url", 1}, {"user", 2}, {"use", 3}, {"key", 4}};

using Arguments = std::vector<const char*>;

/// Scans a whole command line: "1=x" for each option, "?-x" for each bad one, and then what is left behind them.
std::string scanAll(Arguments arguments, bool printErrors = true) {
  std::string out;
  OptionScan scan;
  scan.printErrors = printErrors;
  int index = -1;
  int value = 0;
  while ((value = getopt_long_only(scan, arguments, kOptions, index)) != kOptionsEnd) {
    if (value == kOptionError) {
      out += std::string("?") + arguments[static_cast<std::size_t>(scan.nextIndex - 1)] + " ";
    } else {
      EXPECT_EQ(kOptions[index].value, value);
      out += std::to_string(value) + "=" + scan.argument + " ";
    }
  }
  out += "|";
  for (auto i = static_cast<std::size_t>(scan.nextIndex); i < arguments.size(); ++i) {
    out += " " + std::string(arguments[i]);
  }
  return out;
}

TEST(GetoptLongOnly, WholeCommandLines) {
  const struct {
    Arguments arguments;
    std::string want;
    std::string message;
  } rows[] = {
      {{"-url", "x", "--url", "y", "-url=z", "--url=w"}, "1=x 1=y 1=z 1=w |", ""},
      {{"--ur", "x", "--ur=y", "--k", "z"}, "1=x 1=y 4=z |", ""},
      {{"--use", "x"}, "3=x |", ""},  // exact wins over the prefix of "user"
      {{"--us", "x"}, "?--us | x", "p: ambiguous option '--us'\n"},
      {{"--=x"}, "?--=x |", "p: ambiguous option '--=x'\n"},
      {{"-ur", "x"}, "?-ur | x", "p: unrecognized option '-ur'\n"},
      {{"-=x"}, "?-=x |", "p: unrecognized option '-=x'\n"},
      {{"--urls=x"}, "?--urls=x |", "p: unrecognized option '--urls=x'\n"},
      {{"-URL", "x"}, "?-URL | x", "p: unrecognized option '-URL'\n"},
      {{"-url=", "--url=", "-url", ""}, "1= 1= 1= |", ""},
      {{"-url", "-key"}, "1=-key |", ""},
      {{"-url=a=b"}, "1=a=b |", ""},
      {{"-key", "x", "-url"}, "4=x ?-url |", "p: option '-url' requires an argument\n"},
      {{"--ur"}, "?--ur |", "p: option '--ur' requires an argument\n"},
      {{}, "|", ""},
      // What is no option ends up last.
      {{"a", "-url", "x", "b", "-key", "y", "c"}, "1=x 4=y | a b c", ""},
      {{"-", "", "/url", "-url", "x"}, "1=x | -  /url", ""},
      {{"a", "-url", "x", "b", "--", "-key", "y"}, "1=x | a b -key y", ""},
      {{"a", "--"}, "| a", ""},
      {{"a", "b"}, "| a b", ""},
  };
  for (const auto& row : rows) {
    Arguments arguments = {"p"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    testing::internal::CaptureStderr();
    EXPECT_EQ(scanAll(arguments), row.want) << testing::PrintToString(row.arguments);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), row.message) << row.want;
  }
  EXPECT_EQ(scanAll({}), "|") << "not even the program's name";
  testing::internal::CaptureStderr();
  EXPECT_EQ(scanAll({"p", "--us", "-nope", "-key"}, false), "?--us ?-nope ?-key |");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
