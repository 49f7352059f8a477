#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace bench {

/// Takes results, so that the compiler does not drop the work that made them.
inline volatile std::size_t sink = 0;

/// Returns the seconds that one call takes.
template <class Work>
double secondsOf(const Work& work) {
  const auto begun = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

/// Medians of measurements in rounds. Each round measures both sides, so that both meet the same load of the machine.
struct Pair {
  double ours = 0;
  double peer = 0;
  double ratio = 0;  ///< the median over the rounds of ours / peer
};

/// Measures both sides in rounds, after one round that does not count. The side that comes first alternates.
/// \param ours, peer  do their work and return the seconds that count.
Pair inRounds(int rounds, const std::function<double()>& ours, const std::function<double()>& peer);

/// How the figures of a row are computed from seconds.
enum class Unit {
  kNanoseconds,  ///< per call: seconds / amount. The ratio is ours / peer; a small one is good.
  kRate,         ///< amount / seconds. The ratio is ours / peer; a large one is good.
};

/// Prints a row of the table of results.
/// \param amount  the number of calls, lines or millions of bytes that one round handles.
/// \param name  their unit, for rates: "lines" or "MB".
/// \param wanted  the bound, in words.
/// \param met  whether the figures keep the bound.
void printRow(const std::string& what, const std::string& peerName, const Pair& pair, Unit unit, double amount,
              const std::string& name, const std::string& wanted, bool met);

/// Returns the ratio of the two rates, ours / peer. Callers compare it with the bound of their row.
inline double rateRatio(const Pair& pair) { return 1 / pair.ratio; }

}  // namespace bench
