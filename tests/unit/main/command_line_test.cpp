#include "main/command_line.h"

#include <gtest/gtest.h>

#include "core/exception.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

namespace {

bool parse(std::vector<std::wstring> arguments, options& out) {
  std::vector<wchar_t*> vector;
  for (std::wstring& argument : arguments) {
    vector.push_back(argument.data());
  }
  testing::internal::CaptureStderr();
  const bool usable = lParseCommandLine(static_cast<int>(vector.size()), vector.data(), out);
  testing::internal::GetCapturedStderr();
  return usable;
}

TEST(CommandLine, WhatIsUsableAndWhatIsSaid) {
  const struct {
    std::vector<std::wstring> arguments;
    bool usable;
    std::string url;
    std::wstring bad;  ///< the argument that the log names
  } rows[] = {
      {{}, false, "", L""},
      {{L"mdDCT.exe"}, false, "", L""},
      {{L"mdDCT.exe", L"-url", L"x"}, true, "x", L""},
      {{L"mdDCT.exe", L"--url=x"}, true, "x", L""},
      {{L"mdDCT.exe", L"--ur", L"x"}, true, "x", L""},
      {{L"mdDCT.exe", L"--=x"}, true, "x", L""},  // the empty name is a prefix of the only one
      {{L"mdDCT.exe", L"-url", L"x", L"--url", L"b\u00E4"}, true, "b\xC3\xA4", L""},
      {{L"mdDCT.exe", L"-url="}, true, "", L""},
      {{L"mdDCT.exe", L"stray", L"-url", L"x", L"more"}, true, "x", L""},
      {{L"mdDCT.exe", L"-url", L"--"}, true, "--", L""},
      {{L"mdDCT.exe", L"--", L"-url", L"x"}, false, "", L""},
      {{L"mdDCT.exe", L"/url", L"x"}, false, "", L""},
      {{L"mdDCT.exe", L"-"}, false, "", L""},
      {{L"mdDCT.exe", L"-url"}, false, "", L"-url"},
      {{L"mdDCT.exe", L"stray", L"-u", L"x"}, false, "", L"-u"},
      {{L"mdDCT.exe", L"-url", L"x", L"stray", L"-nope", L"y"}, false, "x", L"-nope"},
      {{L"mdDCT.exe", L"---url=x"}, false, "", L"---url=x"},
  };
  sim::Windows windows;
  sim::LogCapture log(windows);
  for (const auto& row : rows) {
    const std::string name = testing::PrintToString(row.arguments);
    log.clear();
    options out;
    EXPECT_EQ(parse(row.arguments, out), row.usable) << name;
    EXPECT_EQ(out.url, row.url) << name;
    std::vector<sim::LogLine> want;
    if (!row.bad.empty()) {
      want.push_back({CORE::kError, L"lParseCommandLine(): Unrecognized argument or bad syntax: " + row.bad});
    }
    EXPECT_EQ(log.lines(), want) << name << log.text();
  }
}

TEST(CommandLine, AnArgumentThatIsNoTextThrows) {
  options out;
  EXPECT_THROW(parse({L"mdDCT.exe", L"-url", std::wstring(1, static_cast<wchar_t>(0xD800))}, out), CORE::coreException);
  testing::internal::GetCapturedStderr();
}

}  // namespace
