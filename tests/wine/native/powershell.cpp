// Stand-in for powershell.exe as the agent's two scripts are run by it: answers the capability query, writes the
// collection's bundle, and misbehaves when it is told to (standin/control.h). Any other command line ends with exit
// code 64 and a line in the record; trouble of its own ends with 65.

#include <windows.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/wine/native/arguments.h"
#include "tests/wine/native/standin/call.h"
#include "tests/wine/native/standin/control.h"
#include "tests/wine/native/standin/query.h"
#include "tests/wine/native/standin/zip_writer.h"

namespace {

constexpr int kRefused = 64;
constexpr int kOwnTrouble = 65;

int collect(const standin::Control& control, const std::filesystem::path& bundle) {
  ::Sleep(static_cast<DWORD>(control.number(L"delay")));
  const std::wstring& kind = control.text(L"collect");
  if (kind == L"ok") {
    if (!standin::writeZip(bundle, control.number(L"size"))) {
      throw std::runtime_error("cannot write the bundle");
    }
  } else if (kind == L"empty") {
    std::ofstream(bundle, std::ios::binary);
  } else if (kind != L"none") {
    throw std::runtime_error("no such collect: " + native::narrow(kind));
  }
  return static_cast<int>(control.number(L"exit"));
}

int run() {
  const std::vector<std::wstring> arguments = native::arguments();
  if (arguments.size() == 2 && arguments.front() == L"--hold") {  // the grandchild
    ::Sleep(std::stoul(arguments.back()));
    return 0;
  }
  const standin::Control control;
  const standin::Call call = standin::thisCall();
  const bool refused = !call.objection.empty();
  standin::record(control.text(L"record"), call.mode, refused ? call.objection : control.text(call.mode));
  if (refused) {
    native::complain("powershell", native::narrow(call.objection));
    return kRefused;
  }
  return call.mode == L"query" ? standin::answerQuery(control) : collect(control, call.bundle);
}

}  // namespace

int main() {
  try {
    return run();
  } catch (const std::exception& error) {
    native::complain("powershell", error.what());
    return kOwnTrouble;
  }
}
