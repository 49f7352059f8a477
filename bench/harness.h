#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace bench {

/// Keeps the compiler from dropping a result.
inline volatile std::size_t sink = 0;

/// Seconds that one call takes.
template <class Work>
double secondsOf(const Work& work) {
  const auto begun = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

/// Medians of measurements that were taken in turns, so that both sides meet the same weather.
struct Pair {
  double ours = 0;
  double peer = 0;
  double ratio = 0;  ///< median of ours / peer of each turn
};

/// Measures both sides in turns (each first in every other one) after one turn that does not count.
/// \param ours, peer  do their work and return the seconds that count.
Pair inTurns(int turns, const std::function<double()>& ours, const std::function<double()>& peer);

/// How a row's figures are derived from seconds.
enum class Unit {
  kNanoseconds,  ///< a call: seconds / amount; the ratio is ours / peer, small is good
  kRate,         ///< amount / seconds; the ratio is ours / peer, large is good
};

/// Prints a row of the table of results.
/// \param amount  calls, lines or bytes that the seconds of a turn stand for.
/// \param name  of one of them, for rates: "lines", "MB" (then amount counts millions of bytes).
void printRow(const std::string& what, const std::string& peerName, const Pair& pair, Unit unit, double amount,
              const std::string& name, const std::string& wanted, bool met);

/// "yes" or "no" of a row is for the caller to say; these are the figures it says it by.
inline double rateRatio(const Pair& pair) { return 1 / pair.ratio; }

}  // namespace bench
