#include "tests/wine/native/standin/query.h"

#include <windows.h>

#include <array>
#include <stdexcept>
#include <string>

#include "tests/wine/native/arguments.h"

namespace standin {
namespace {

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

}  // namespace

int answerQuery(const Control& control) {
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

}  // namespace standin
