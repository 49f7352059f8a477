#include "tests/wine/native/standin/control.h"

#include <windows.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "tests/wine/native/arguments.h"

namespace standin {
namespace {

const std::set<std::string>& knownKeys() {
  static const std::set<std::string> keys = {"query", "queryexit", "hugesize", "grandchild", "hold",  "collect",
                                             "exit",  "size",      "seed",     "delay",      "record"};
  return keys;
}

std::wstring controlFile() {
  std::array<wchar_t, 32768> value{};
  ::GetEnvironmentVariableW(L"MDDCT_STANDIN", value.data(), static_cast<DWORD>(value.size()));
  return value.data();
}

}  // namespace

Control Control::load() {
  Control control;
  const std::wstring name = controlFile();
  if (name.empty()) {
    return control;
  }
  std::ifstream file(std::filesystem::path(native::windowsPath(name)));
  if (!file) {
    throw std::runtime_error("cannot open the control file " + native::narrow(name));
  }
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (line.empty() || line.front() == '#') {
      continue;
    }
    const std::size_t equals = line.find('=');
    const std::string key = line.substr(0, equals);
    if (equals == std::string::npos || !knownKeys().contains(key)) {
      throw std::runtime_error("control file: what does \"" + line + "\" mean?");
    }
    control.values_[key] = line.substr(equals + 1);
  }
  return control;
}

std::string Control::text(const std::string& key, const std::string& otherwise) const {
  const auto found = values_.find(key);
  return found == values_.end() ? otherwise : found->second;
}

std::uint64_t Control::number(const std::string& key, std::uint64_t otherwise) const {
  const auto found = values_.find(key);
  if (found == values_.end()) {
    return otherwise;
  }
  std::size_t used = 0;
  const std::uint64_t value = std::stoull(found->second, &used, 0);
  const std::string unit = found->second.substr(used);
  const int shift = unit.empty() ? 0 : unit == "K" ? 10 : unit == "M" ? 20 : unit == "G" ? 30 : -1;
  if (shift < 0) {
    throw std::runtime_error("control file: " + key + "=" + found->second + " is no number");
  }
  return value << shift;
}

}  // namespace standin
