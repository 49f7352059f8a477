#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "bench/benchmarks.h"
#include "bench/harness.h"
#include "bench/real_windows.h"
#include "core/bag/property_bag.h"

namespace bench {
namespace {

constexpr std::size_t kMegabyte = 1'000'000;

/// Returns one object of this many bytes, with about 50 bytes per entry.
std::string flatText(std::size_t bytes) {
  std::string text = "{";
  for (std::size_t i = 0; text.size() < bytes; ++i) {
    text += (i == 0 ? "\"name" : ",\"name") + std::to_string(10'000'000 + i) + "\":\"C:\\\\ProgramData\\\\value\"";
  }
  return text + "}";
}

/// Returns nested objects of this many bytes, with two entries and about 50 bytes per level.
std::string deepText(std::size_t bytes) {
  std::string text = "{";
  std::size_t depth = 1;
  for (; text.size() < bytes; ++depth) {
    text += "\"name" + std::to_string(10'000'000 + depth) + "\":\"ProgramData value\",\"next\":{";
  }
  text += "\"end\":\"1\"";
  return text.append(depth, '}');
}

/// Parses into a new bag and returns the seconds of the parsing alone. Ends the program when the bag does not read the
/// text.
double parseOurs(const std::wstring& text) {
  CORE::PropertyBag bag;
  std::wstring copy = text;
  bool read = false;
  const double seconds = secondsOf([&] { read = bag.parse(std::move(copy)); });
  if (!read || bag.count() == 0) {
    std::fputs("the bag does not read the text\n", stderr);
    std::exit(1);
  }
  return seconds;
}

double parseTheirs(const std::string& text) {
  nlohmann::json tree;
  const double seconds = secondsOf([&] { tree = nlohmann::json::parse(text); });
  sink = sink + tree.size();
  return seconds;
}

void benchShape(const char* shape, std::string (*make)(std::size_t)) {
  std::optional<double> first;
  for (const std::size_t megabytes : {std::size_t{1}, std::size_t{10}, std::size_t{100}}) {
    const std::string text = make(megabytes * kMegabyte);
    const std::wstring wide(text.begin(), text.end());
    const Pair pair = inRounds(
        megabytes == 100 ? 5 : 9, [&] { return parseOurs(wide); }, [&] { return parseTheirs(text); });
    const double perMegabyte = pair.ours / static_cast<double>(megabytes);
    first = first.value_or(perMegabyte);
    char wanted[64];
    std::snprintf(wanted, sizeof(wanted), "at least 1; linear (here %.2f times the 1 MB time a byte)",
                  perMegabyte / *first);
    printRow("parse of " + std::to_string(megabytes) + " MB, " + shape, "nlohmann/json", pair, Unit::kRate,
             static_cast<double>(megabytes), "MB", wanted, rateRatio(pair) >= 1);
  }
}

}  // namespace

void benchBags(const std::filesystem::path& folder) {
  const RealWindows windows(folder);
  benchShape("flat", flatText);
  benchShape("deep", deepText);
}

}  // namespace bench
