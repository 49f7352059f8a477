// configuration: measures a look-up through the map of legacy policies on the registry of this platform, and prints its
// row. The value "limit" must exist in the product's key WebRTCRedir.

#include "core/settings/configuration.h"

#include <cstdio>
#include <string>
#include <vector>

#include "bench/harness.h"
#include "platform/platform.h"
#include "platform/registry.h"
#include "platform/windows/windows_platform.h"

namespace {

constexpr CORE::Setting kLimit{L"WebRTCRedir\\limit", L""};  // the last component but one of the map
constexpr std::size_t kLookups = 500;
constexpr int kRounds = 15;

/// A key that a look-up opens, and the value that it reads there when the key exists.
struct Read {
  std::wstring keyPath;
  std::wstring value;
};

/// Makes the registry calls of a look-up alone: opens each key and, when it exists, gets the size of the value and
/// reads it.
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
      bench::sink = bench::sink + registry.RegQueryValueExW(key.value.get(), read.value, data).ok;
    }
  }
}

template <class Body>
double secondsOfLookups(const Body& body) {
  return bench::secondsOf([&] {
    for (std::size_t i = 0; i < kLookups; ++i) {
      body();
    }
  });
}

}  // namespace

int wmain(int, wchar_t**) {
  platform::install(&platform::windowsPlatform());
  const std::wstring key = L"Calvera\\Meridon\\WebRTCRedir";
  if (CORE::readSetting(kLimit) != L"4096") {
    std::fputs("the value WebRTCRedir\\limit is missing\n", stderr);
    return 1;
  }
  const std::vector<Read> reads = {
      {L"Software\\Policies\\" + key, L"limit"},
      {L"Software\\Policies\\Calvera\\Meridon", L"FallbackToLegacyGPO"},
      {L"Software\\Calvera\\Meridon", L"FallbackToLegacyGPO"},
      {L"Software\\Policies\\Vantix, Inc.\\Vantix WebRTCRedir", L"limit"},
      {L"Software\\" + key, L"limit"},
  };
  platform::Registry& registry = platform::current().registry;
  const bench::Pair pair = bench::inRounds(
      kRounds, [&] { return secondsOfLookups([&] { bench::sink = bench::sink + CORE::readSetting(kLimit).size(); }); },
      [&] { return secondsOfLookups([&] { readBare(registry, reads); }); });
  bench::printRow("configuration look-up through the 59-row map, under Wine", "its 5 bare reads", pair,
                  bench::Unit::kNanoseconds, kLookups, "", "at most 1.2", pair.ratio <= 1.2);
  return 0;
}
