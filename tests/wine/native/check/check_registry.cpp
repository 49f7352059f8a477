#include <windows.h>

#include <array>
#include <vector>

#include "platform/platform.h"
#include "platform/registry.h"
#include "tests/wine/native/check/tap.h"

namespace check {
namespace {

constexpr const wchar_t* kKey = L"Software\\Calvera\\Meridon\\Platform Check";
constexpr std::uint32_t kRead = platform::kKeyQueryValue | platform::kKeyWow64_64Key;

platform::Registry& registry_() { return platform::current().registry; }

struct Value {
  const char* name;
  std::uint32_t type;
  std::vector<BYTE> data;
};

const std::vector<Value>& values() {
  static const std::vector<Value> list = {
      {"text", platform::kRegSz, {'a', 0, 0xAC, 0x20, 0, 0}},  // "a" and the euro sign, terminated
      {"unterminated text", platform::kRegSz, {'a', 0, 'b', 0}},
      {"empty text", platform::kRegSz, {}},
      {"expandable text", platform::kRegExpandSz, {'%', 0, 'A', 0, '%', 0, 0, 0}},
      {"several texts", platform::kRegMultiSz, {'a', 0, 0, 0, 'b', 0, 0, 0, 0, 0}},
      {"number", platform::kRegDword, {0x78, 0x56, 0x34, 0x12}},
      {"long number", platform::kRegQword, {1, 2, 3, 4, 5, 6, 7, 8}},
      {"bytes", platform::kRegBinary, {0xFF, 0, 0x80}},
  };
  return list;
}

std::wstring widened(const char* text) { return std::wstring(text, text + std::char_traits<char>::length(text)); }

void writeValues() {
  HKEY key = nullptr;
  ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
  for (const Value& value : values()) {
    // The call takes a terminator that stands right behind the data as forgotten, and adds it.
    std::vector<BYTE> data = value.data;
    data.insert(data.end(), 2, 0xFF);
    ::RegSetValueExW(key, widened(value.name).c_str(), 0, value.type, data.data(),
                     static_cast<DWORD>(value.data.size()));
  }
  ::RegCloseKey(key);
}

void readValue(platform::NativeHandle key, const Value& value) {
  const std::string name = std::string("registry: ") + value.name;
  const auto asked = registry_().RegQueryValueExW(key, widened(value.name), {});
  that(asked.ok && asked.value.type == value.type && asked.value.size == value.data.size(), name + ", type and size");
  std::vector<std::byte> buffer(value.data.size());
  const auto read = registry_().RegQueryValueExW(key, widened(value.name), buffer);
  const auto wanted = std::as_bytes(std::span(value.data));
  that(read.ok && std::equal(wanted.begin(), wanted.end(), buffer.begin(), buffer.end()), name + ", data");
}

void failures(platform::NativeHandle key) {
  std::array<std::byte, 3> small{};
  const auto shortRead = registry_().RegQueryValueExW(key, L"number", small);
  that(!shortRead.ok && shortRead.error == platform::kErrorMoreData && shortRead.value.size == 4 &&
           shortRead.value.type == platform::kRegDword,
       "registry: a short buffer gives the size needed");
  equal(registry_().RegQueryValueExW(key, L"missing", {}).error, platform::kErrorFileNotFound,
        "registry: a missing value");
  const auto missing = registry_().RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, L"Software\\No Such", kRead);
  that(!missing.ok && missing.error == platform::kErrorFileNotFound && !missing.value, "registry: a missing key");
}

void otherRoots() {
  const auto machine = registry_().RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, L"Software", kRead);
  that(machine.ok && registry_().RegOpenKeyExW(machine.value.get(), L"Calvera\\Meridon", kRead).ok,
       "registry: a key below an open key");
  that(registry_().RegOpenKeyExW(platform::RegistryRoot::kCurrentUser, L"Software", kRead).ok,
       "registry: the user's own hive");
  that(!registry_().RegOpenKeyExW(platform::RegistryRoot::kCurrentUser, kKey, kRead).ok,
       "registry: which is not the machine's");
  const auto hive = registry_().RegOpenCurrentUser(kRead);
  that(hive.ok && registry_().RegOpenKeyExW(hive.value.get(), L"Software", kRead).ok,
       "registry: the hive of the impersonated user");
}

}  // namespace

void registry() {
  writeValues();
  {
    const auto key = registry_().RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, kKey, kRead);
    that(key.ok, "registry: the key opens in the 64-bit view");
    for (const Value& value : values()) {
      readValue(key.value.get(), value);
    }
    failures(key.value.get());
  }
  otherRoots();
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey);
}

}  // namespace check
