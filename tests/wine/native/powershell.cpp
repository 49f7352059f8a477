// Stand-in for powershell.exe as the agent's two scripts are run by it: answers the capability query, writes the
// collection's bundle, and misbehaves when it is told to (standin/control.h). Any other command line ends with exit
// code 64 and a line in the record; trouble of its own ends with 65.

#include <windows.h>

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/wine/native/arguments.h"
#include "tests/wine/native/standin/call.h"
#include "tests/wine/native/standin/control.h"

namespace {

constexpr int kRefused = 64;
constexpr int kOwnTrouble = 65;

constexpr const char* kAnswer = R"({
  "featureData": {
    "AgentCore": {"supportedLogLevels": "INFO,DEBUG,TRACE"},
    "Clipboard": {"supportedLogLevels": "INFO,VERBOSE"},
    "USB": {"supportedLogLevels": "DEBUG"}
  }
}
)";

constexpr int kDepth = 1000000;

std::string deepAnswer() {
  std::string text = R"({"featureData":)";
  for (int i = 0; i < kDepth; ++i) {
    text += R"({"a":)";
  }
  return text + "1" + std::string(kDepth + 1, '}');
}

std::string answerOf(const std::wstring& kind) {
  if (kind == L"json") {
    return kAnswer;
  }
  if (kind == L"garbage") {
    return "vdx-query : the term is not recognised }{ \"featureData\": [\r\n";
  }
  if (kind == L"huge") {
    const std::string note(100 << 20, 'x');
    return R"({"featureData":{"AgentCore":{"supportedLogLevels":"INFO"}},"note":")" + note + "\"}\n";
  }
  if (kind == L"deep") {
    return deepAnswer();
  }
  if (kind == L"notutf8") {
    return "{\"featureData\":{\"Agent\xFF\xFE\xC0\":{\"supportedLogLevels\":\"INFO\"}}}";
  }
  if (kind == L"silent" || kind == L"fail" || kind == L"hang") {
    return {};
  }
  throw std::runtime_error("no such query: " + native::narrow(kind));
}

// Starts a copy that keeps this process's standard output open for that long.
void startPipeHolder(const std::wstring& milliseconds) {
  std::array<wchar_t, MAX_PATH> self{};
  ::GetModuleFileNameW(nullptr, self.data(), static_cast<DWORD>(self.size()));
  std::wstring line = L"\"" + std::wstring(self.data()) + L"\" --hold " + milliseconds;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION child{};
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &child)) {
    throw std::runtime_error("cannot start the copy");
  }
}

// Answers the capability query on the standard output as it was told to. Gives the exit code.
int answerQuery(const standin::Control& control) {
  if (control.number(L"grandchild") > 0) {
    startPipeHolder(control.text(L"grandchild"));
  }
  const std::wstring& kind = control.text(L"query");
  const std::string answer = answerOf(kind);
  DWORD written = 0;
  ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), answer.data(), static_cast<DWORD>(answer.size()), &written, nullptr);
  if (kind == L"hang") {
    ::Sleep(INFINITE);
  }
  return kind == L"fail" ? 1 : 0;
}

// Bytes that do not compress, the same ones every time: nobody looks into a bundle. A sparse one is zeros without room.
void writeBundle(const std::filesystem::path& path, std::uint64_t size, bool sparse) {
  std::ofstream file(path, std::ios::binary);
  if (sparse && size > 0) {
    file.seekp(static_cast<std::streamoff>(size - 1)).put('\0');
    size = 0;
  }
  std::mt19937_64 random;  // with its own seed
  std::vector<std::uint64_t> words(1 << 17);
  for (std::uint64_t left = size, part = 0; left > 0; left -= part) {
    std::generate(words.begin(), words.end(), std::ref(random));
    part = std::min<std::uint64_t>(left, words.size() * sizeof(words[0]));
    file.write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(part));
  }
  if (!file.flush()) {
    throw std::runtime_error("cannot write the bundle");
  }
}

int collect(const standin::Control& control, const std::filesystem::path& bundle) {
  ::Sleep(static_cast<DWORD>(control.number(L"delay")));
  const std::wstring& kind = control.text(L"collect");
  if (kind == L"ok" || kind == L"sparse" || kind == L"empty") {
    writeBundle(bundle, kind == L"empty" ? 0 : control.number(L"size"), kind == L"sparse");
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
  return call.mode == L"query" ? answerQuery(control) : collect(control, call.bundle);
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
