#include "main/getopt_long_only.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr LongOption kOptions[] = {{"url", 1}, {"user", 2}, {"use", 3}, {"key", 4}};

/// What one scan of a whole command line gave: "1=x" for each option, "?" for an error, and the vector as it was left.
struct Outcome {
  std::string results;
  std::vector<std::string> left;
  std::string messages;
};

Outcome scanAll(std::vector<const char*> arguments) {
  Outcome out;
  OptionScan scan;
  int index = 0;
  testing::internal::CaptureStderr();
  for (;;) {
    const int value = getopt_long_only(scan, arguments, kOptions, index);
    if (value == kOptionsEnd) {
      break;
    }
    out.results += out.results.empty() ? "" : " ";
    out.results += value == kOptionError ? "?" : std::to_string(value) + "=" + scan.argument;
  }
  out.messages = testing::internal::GetCapturedStderr();
  if (arguments.size() > 1) {
    out.left.assign(arguments.begin() + scan.nextIndex, arguments.end());
  }
  return out;
}

TEST(GetoptLongOnly, NamesPrefixesAndArguments) {
  const struct {
    std::vector<const char*> arguments;
    std::string results;
    std::string messages;
  } rows[] = {
      {{"p", "-url", "x", "--url", "y", "-url=z", "--url=w"}, "1=x 1=y 1=z 1=w", ""},
      {{"p", "--ur", "x", "--ur=y", "--k", "z"}, "1=x 1=y 4=z", ""},
      {{"p", "--use", "x"}, "3=x", ""},  // exact wins over the prefix of "user"
      {{"p", "--us", "x"}, "?", "p: ambiguous option '--us'\n"},
      {{"p", "--=x"}, "?", "p: ambiguous option '--=x'\n"},
      {{"p", "-ur", "x"}, "?", "p: unrecognized option '-ur'\n"},
      {{"p", "-u"}, "?", "p: unrecognized option '-u'\n"},
      {{"p", "-=x"}, "?", "p: unrecognized option '-=x'\n"},
      {{"p", "---url", "x"}, "?", "p: unrecognized option '---url'\n"},
      {{"p", "--urls=x"}, "?", "p: unrecognized option '--urls=x'\n"},
      {{"p", "-URL", "x"}, "?", "p: unrecognized option '-URL'\n"},
      {{"p", "-url=", "--url=", "-url", ""}, "1= 1= 1=", ""},
      {{"p", "-url", "--"}, "1=--", ""},
      {{"p", "-url", "-key"}, "1=-key", ""},
      {{"p", "-url=a=b"}, "1=a=b", ""},
      {{"p", "-key", "x", "-url"}, "4=x ?", "p: option '-url' requires an argument\n"},
      {{"p", "--ur"}, "?", "p: option '--ur' requires an argument\n"},
      {{"p"}, "", ""},
      {{}, "", ""},
  };
  for (const auto& row : rows) {
    const std::string name = row.arguments.empty() ? "no element" : row.arguments.back();
    const Outcome got = scanAll(row.arguments);
    EXPECT_EQ(got.results, row.results) << name;
    EXPECT_EQ(got.messages, row.messages) << name;
  }
}

TEST(GetoptLongOnly, WhatIsNoOptionEndsUpLast) {
  const struct {
    std::vector<const char*> arguments;
    std::string results;
    std::vector<std::string> left;
  } rows[] = {
      {{"p", "a", "-url", "x", "b", "-key", "y", "c"}, "1=x 4=y", {"a", "b", "c"}},
      {{"p", "-", "", "/url", "-url", "x"}, "1=x", {"-", "", "/url"}},
      {{"p", "a", "-url", "x", "b", "--", "-key", "y"}, "1=x", {"a", "b", "-key", "y"}},
      {{"p", "--", "-url", "x"}, "", {"-url", "x"}},
      {{"p", "a", "--"}, "", {"a"}},
      {{"p", "a", "b"}, "", {"a", "b"}},
  };
  for (const auto& row : rows) {
    const Outcome got = scanAll(row.arguments);
    EXPECT_EQ(got.results, row.results) << row.arguments[1];
    EXPECT_EQ(got.left, row.left) << row.arguments[1];
  }
}

TEST(GetoptLongOnly, StateOfTheScan) {
  std::vector<const char*> arguments = {"p", "stray", "-key", "x", "-nope"};
  OptionScan scan;
  scan.printErrors = false;
  int index = 0;
  testing::internal::CaptureStderr();
  EXPECT_EQ(getopt_long_only(scan, arguments, kOptions, index), 4);
  EXPECT_EQ(index, 3);
  EXPECT_EQ(scan.nextIndex, 4);
  EXPECT_EQ(getopt_long_only(scan, arguments, kOptions, index), kOptionError);
  EXPECT_STREQ(arguments[static_cast<std::size_t>(scan.nextIndex - 1)], "-nope");
  EXPECT_EQ(scan.unrecognizedCharacter, 'n');
  EXPECT_EQ(getopt_long_only(scan, arguments, kOptions, index), kOptionsEnd);
  EXPECT_EQ(getopt_long_only(scan, arguments, kOptions, index), kOptionsEnd);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
