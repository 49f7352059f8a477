// Stand-in for powershell.exe as the agent's two scripts are run by it: answers the capability query, writes the
// collection's bundle, and misbehaves when its control file says so (standin/control.h). Any other command line ends
// with exit code 64 and a line in the record; trouble of its own ends with 65.

#include <windows.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/wine/native/arguments.h"
#include "tests/wine/native/standin/background.h"
#include "tests/wine/native/standin/call.h"
#include "tests/wine/native/standin/control.h"
#include "tests/wine/native/standin/query.h"
#include "tests/wine/native/standin/zip_writer.h"

namespace {

constexpr int kRefused = 64;
constexpr int kOwnTrouble = 65;
constexpr std::uint64_t kDefaultSize = 1 << 20;

int refuse(const std::string& recordFile, const std::string& reason) {
  standin::record(recordFile, "refused", reason);
  native::complain("powershell", reason);
  return kRefused;
}

void writeBundle(const standin::Control& control, const std::wstring& bundle) {
  if (!standin::writeZip(bundle, control.number("size", kDefaultSize), control.number("seed", 1))) {
    throw std::runtime_error("cannot write the bundle");
  }
}

int collect(const standin::Control& control, const std::wstring& bundle) {
  const std::string kind = control.text("collect", "ok");
  const std::uint64_t delay = control.number("delay", 500);
  if (kind == "ok") {
    writeBundle(control, bundle);
  } else if (kind == "slow") {
    ::Sleep(static_cast<DWORD>(delay));
    writeBundle(control, bundle);
  } else if (kind == "grow" || kind == "vanish") {
    writeBundle(control, bundle);
    standin::startBundleSpoiler(kind, delay, bundle);
  } else if (kind == "empty") {
    std::ofstream(std::filesystem::path(bundle), std::ios::binary);
  } else if (kind == "hang") {
    ::Sleep(INFINITE);
  } else if (kind != "none" && kind != "exit") {
    throw std::runtime_error("control file: no such collect: " + kind);
  }
  return static_cast<int>(control.number("exit", kind == "exit" ? 1 : 0));
}

int run(const standin::Control& control) {
  const std::string recordFile = control.text("record", "");
  const std::vector<std::wstring> arguments = native::arguments();
  if (!arguments.empty() && arguments.front() == L"--background") {
    return standin::runInBackground({arguments.begin() + 1, arguments.end()}, recordFile);
  }
  const std::wstring commandLine = native::commandLineFrom(0);
  if (standin::isQuery(commandLine)) {
    const std::string objection = standin::objectionToQuery();
    if (!objection.empty()) {
      return refuse(recordFile, objection);
    }
    standin::record(recordFile, "query", control.text("query", "json"));
    return standin::answerQuery(control);
  }
  const auto collection = standin::parseCollection(commandLine);
  if (!collection) {
    return refuse(recordFile, "unknown command line");
  }
  const std::string objection = standin::objectionTo(*collection);
  if (!objection.empty()) {
    return refuse(recordFile, objection);
  }
  standin::record(recordFile, "collect", control.text("collect", "ok"));
  return collect(control, collection->bundle);
}

}  // namespace

int main() {
  try {
    return run(standin::Control::load());
  } catch (const std::exception& error) {
    native::complain("powershell", error.what());
    return kOwnTrouble;
  }
}
