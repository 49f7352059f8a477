#include "tests/wine/native/standin/control.h"

#include <windows.h>

#include <array>
#include <sstream>
#include <stdexcept>

#include "tests/wine/native/arguments.h"

namespace standin {

Control::Control() {
  std::array<wchar_t, 1024> told{};
  ::GetEnvironmentVariableW(L"MDDCT_STANDIN", told.data(), static_cast<DWORD>(told.size()));
  std::wistringstream entries(told.data());
  for (std::wstring entry; std::getline(entries, entry, L';');) {
    const std::size_t equals = entry.find(L'=');
    const auto found = values_.find(entry.substr(0, equals));
    if (equals == std::wstring::npos || found == values_.end()) {
      throw std::runtime_error("MDDCT_STANDIN: what does \"" + native::narrow(entry) + "\" mean?");
    }
    found->second = entry.substr(equals + 1);
  }
}

std::uint64_t Control::number(const std::wstring& key) const {
  static const std::map<std::wstring, int> shifts = {{L"", 0}, {L"K", 10}, {L"M", 20}, {L"G", 30}};
  std::size_t used = 0;
  const std::uint64_t value = std::stoull(text(key), &used);
  return value << shifts.at(text(key).substr(used));
}

}  // namespace standin
