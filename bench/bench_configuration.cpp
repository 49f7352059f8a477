#include <string>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/harness.h"
#include "bench/real_windows.h"
#include "core/configuration.h"

namespace bench {
namespace {

/// One key that a look-up opens, and the value it reads there when the key is there.
struct Read {
  std::wstring keyPath;
  std::wstring value;
};

/// The same calls as a look-up's, bare: the key is opened and, when it is there, its value asked for and read.
void readBare(platform::Registry& registry, const std::vector<Read>& reads) {
  std::vector<std::byte> data;
  for (const Read& read : reads) {
    const auto key =
        registry.RegOpenKeyExW(platform::RegistryRoot::kLocalMachine, read.keyPath, platform::kKeyQueryValue);
    if (!key) {
      continue;
    }
    const auto info = registry.RegQueryValueExW(key.value.get(), read.value, {});
    if (info) {
      data.resize(info.value.size);
      sink = sink + registry.RegQueryValueExW(key.value.get(), read.value, data).ok;
    }
  }
}

}  // namespace

// The simulated registry is what is read, so the reads themselves cost what its maps and locks cost.
void benchConfiguration(const std::filesystem::path& folder) {
  constexpr std::wstring_view kKey = L"Calvera\\Meridon\\WebRTCRedir";  // the last but one of the map
  const std::wstring plain = L"Software\\" + std::wstring(kKey);
  const std::vector<Read> reads = {
      {L"Software\\Policies\\" + std::wstring(kKey), L"limit"},
      {L"Software\\Policies\\Calvera\\Meridon", L"FallbackToLegacyGPO"},
      {L"Software\\Calvera\\Meridon", L"FallbackToLegacyGPO"},
      {L"Software\\Policies\\Vantix, Inc.\\Vantix WebRTCRedir", L"limit"},
      {plain, L"limit"},
  };
  constexpr std::size_t kLookups = 2000;
  const auto turn = [&](const auto& body) {
    RealWindows windows(folder);  // a new one: the simulation remembers every call
    windows.registry().set(L"HKLM\\" + plain + L"\\limit", L"4096");
    return secondsOf([&] {
      for (std::size_t i = 0; i < kLookups; ++i) {
        body(windows.registry());
      }
    });
  };
  const std::wstring name = L"HKLM\\" + plain + L"\\limit";
  const Pair pair = inTurns(
      15, [&] { return turn([&](platform::Registry&) { sink = sink + CORE::readSetting(name, L"").size(); }); },
      [&] { return turn([&](platform::Registry& registry) { readBare(registry, reads); }); });
  printRow("configuration look-up through the 59-row map", "its 5 bare reads", pair, Unit::kNanoseconds, kLookups, "",
           "at most 1.2", pair.ratio <= 1.2);
}

}  // namespace bench
