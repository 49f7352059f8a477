#include "bench/harness.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace bench {
namespace {

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

std::string figure(double value) {
  char text[64];
  const int decimals = value >= 100 ? 0 : value >= 10 ? 1 : 2;
  std::snprintf(text, sizeof(text), "%.*f", decimals, value);
  return text;
}

}  // namespace

Pair inRounds(int rounds, const std::function<double()>& ours, const std::function<double()>& peer) {
  ours();
  peer();
  std::vector<double> first;
  std::vector<double> second;
  std::vector<double> ratios;
  for (int round = 0; round < rounds; ++round) {
    const bool peerFirst = round % 2 == 1;
    const double before = peerFirst ? peer() : 0;
    first.push_back(ours());
    second.push_back(peerFirst ? before : peer());
    ratios.push_back(first.back() / second.back());
  }
  return {median(first), median(second), median(ratios)};
}

void printRow(const std::string& what, const std::string& peerName, const Pair& pair, Unit unit, double amount,
              const std::string& name, const std::string& wanted, bool met) {
  const bool isRate = unit == Unit::kRate;
  const auto side = [&](double seconds) {
    return isRate ? figure(amount / seconds) + " " + name + "/s" : figure(seconds / amount * 1e9) + " ns";
  };
  std::printf("| %s | %s | %s: %s | %.2f | %s | %s |\n", what.c_str(), side(pair.ours).c_str(), peerName.c_str(),
              side(pair.peer).c_str(), isRate ? rateRatio(pair) : pair.ratio, wanted.c_str(), met ? "yes" : "**no**");
  std::fflush(stdout);
}

}  // namespace bench
