#include "tests/wine/native/standin/call.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "tests/wine/native/arguments.h"

namespace standin {
namespace {

constexpr const wchar_t* kQuery =
    L"powershell.exe -NoLogo -ExecutionPolicy RemoteSigned -File vdx-query.ps1 -l -o json";
constexpr const wchar_t* kCollection =
    LR"re(powershell\.exe -nologo -ExecutionPolicy RemoteSigned -File "([^"]+)\\vdx-support\.ps1")re"
    LR"re( -f "(([^"]+)\\agentDCT_\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d_\d{3}\.zip)" -d "\3")re"
    LR"re( -s(?: -c [^ ,]+(?:,[^ ,]+)*)?(?: -dumps (?:none|prod|sys|prod,sys))?)re";

std::wstring kindOf(DWORD which) {
  const HANDLE handle = ::GetStdHandle(which);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
    return L"none";
  }
  return ::GetFileType(handle) == FILE_TYPE_PIPE ? L"pipe" : L"other";
}

}  // namespace

Call thisCall() {
  const std::wstring line = ::GetCommandLineW();
  const std::filesystem::path here = std::filesystem::current_path();
  if (line == kQuery) {
    const bool found = std::filesystem::exists(here / L"vdx-query.ps1");
    return found ? Call{L"query", {}} : Call{L"refused", {}, L"vdx-query.ps1 is not in the working folder"};
  }
  std::wsmatch parts;
  if (!std::regex_match(line, parts, std::wregex(kCollection))) {
    return {L"refused", {}, L"unknown command line"};
  }
  std::error_code error;
  if (!std::filesystem::equivalent(parts[1].str(), here, error) ||
      !std::filesystem::exists(here / L"vdx-support.ps1")) {
    return {L"refused", {}, L"vdx-support.ps1 is not in the working folder"};
  }
  if (!std::filesystem::is_directory(parts[3].str(), error)) {
    return {L"refused", {}, L"the temporary folder does not exist"};
  }
  return {L"collect", parts[2]};
}

void record(const std::wstring& file, const std::wstring& mode, const std::wstring& outcome) {
  if (file.empty()) {
    return;
  }
  std::wstring line = mode + L'\t' + outcome + L'\t' + std::filesystem::current_path().wstring() + L'\t' +
                      kindOf(STD_OUTPUT_HANDLE) + L'\t' + kindOf(STD_ERROR_HANDLE);
  for (const std::wstring& argument : native::arguments()) {
    line += L'\t' + argument;
  }
  std::ofstream target(std::filesystem::path(file), std::ios::binary | std::ios::app);
  target << native::narrow(line) << '\n';
}

}  // namespace standin
