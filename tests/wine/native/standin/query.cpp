#include "tests/wine/native/standin/query.h"

#include <windows.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/wine/native/standin/background.h"

namespace standin {
namespace {

constexpr std::string_view kAnswer = R"({
  "featureData": {
    "AgentCore": {"supportedLogLevels": "INFO,DEBUG,TRACE"},
    "Clipboard": {"supportedLogLevels": "INFO,VERBOSE"},
    "USB": {"supportedLogLevels": "DEBUG"}
  }
}
)";

// False when nobody reads any more.
bool print(std::string_view text) {
  const HANDLE output = ::GetStdHandle(STD_OUTPUT_HANDLE);
  while (!text.empty()) {
    DWORD written = 0;
    const DWORD part = static_cast<DWORD>(std::min<std::size_t>(text.size(), 1 << 20));
    if (!::WriteFile(output, text.data(), part, &written, nullptr)) {
      return false;
    }
    text.remove_prefix(written);
  }
  return true;
}

// A readable answer whose one feature has a text of that many bytes.
void printHuge(std::uint64_t bytes) {
  const std::string block(1 << 20, 'x');
  bool reading = print(R"({"featureData":{"AgentCore":{"supportedLogLevels":"INFO"}},"note":")");
  for (std::uint64_t left = bytes; reading && left > 0;) {
    const std::uint64_t part = std::min<std::uint64_t>(left, block.size());
    reading = print(std::string_view(block).substr(0, static_cast<std::size_t>(part)));
    left -= part;
  }
  print("\"}\n");
}

void printDeep(int depth) {
  std::string text = R"({"featureData":)";
  for (int i = 0; i < depth; ++i) {
    text += R"({"a":)";
  }
  text += "1" + std::string(static_cast<std::size_t>(depth) + 1, '}');
  print(text);
}

}  // namespace

int answerQuery(const Control& control) {
  const std::string kind = control.text("query", "json");
  if (control.text("grandchild", "") == "keep-pipe") {
    startPipeHolder(control.number("hold", 30000));
  }
  if (kind == "json") {
    print(kAnswer);
  } else if (kind == "garbage") {
    print("vdx-query : the term is not recognised }{ \"featureData\": [\r\n");
  } else if (kind == "huge") {
    printHuge(control.number("hugesize", 100 << 20));
  } else if (kind == "deep") {
    printDeep(1000000);
  } else if (kind == "notutf8") {
    print("{\"featureData\":{\"Agent\xFF\xFE\xC0\":{\"supportedLogLevels\":\"INFO\"}}}");
  } else if (kind == "hang") {
    ::Sleep(INFINITE);
  } else if (kind != "fail" && kind != "silent") {
    throw std::runtime_error("control file: no such query: " + kind);
  }
  return static_cast<int>(control.number("queryexit", kind == "fail" ? 1 : 0));
}

}  // namespace standin
