#include <spdlog/async.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/harness.h"
#include "bench/real_windows.h"
#include "core/log/log.h"
#include "core/log/logger.h"

namespace bench {
namespace {

constexpr std::size_t kQueue = 150'000;  // as the product's own setting
constexpr std::uint32_t kLines = 100'000;
constexpr int kRounds = 9;

/// What one side needed for kLines records.
struct Burst {
  double caller = 0;  ///< seconds until the last log call returned
  double all = 0;     ///< until the last line was in its file
};

template <class Log, class Flush>
Burst burst(const Log& log, const Flush& flush) {
  Burst out;
  out.all = secondsOf([&] {
    out.caller = secondsOf([&] {
      for (std::uint32_t i = 0; i < kLines; ++i) {
        log(i);
      }
    });
    flush();
  });
  return out;
}

Burst ours(CORE::LogLevel level) {
  static const std::wstring name = L"bundle-2026-11-13.zip";
  return burst(
      [level](std::uint32_t i) {
        CORE::log(level, L"AzureBlobUploader::upload(): block %u of %s has been written", i, name);
      },
      [] { CORE::corelogger::instance().flush(); });
}

Burst theirs(const std::vector<spdlog::sink_ptr>& sinks) {
  static const std::string name = "bundle-2026-11-13.zip";
  auto pool = std::make_shared<spdlog::details::thread_pool>(kQueue, 1);
  auto logger = std::make_shared<spdlog::async_logger>("mdDCT.exe", sinks.begin(), sinks.end(), pool,
                                                       spdlog::async_overflow_policy::block);
  logger->set_level(spdlog::level::debug);
  return burst(
      [&](std::uint32_t i) { logger->debug("AzureBlobUploader::upload(): block {} of {} has been written", i, name); },
      [&] {
        pool.reset();  // writes what is queued, then joins the thread
        for (const auto& sink : sinks) {
          sink->flush();
        }
      });
}

spdlog::sink_ptr fileSink(const std::filesystem::path& path) {
  auto sink = std::make_shared<spdlog::sinks::basic_file_sink_st>(path.string(), true);
  sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
      "%Y-%m-%dT%H:%M:%S.%eZ %^%l%$ (%P-%t) <worker> [%n] %v", spdlog::pattern_time_type::utc, "\r\n"));
  return sink;
}

void printPair(const std::string& what, CORE::LogLevel level, const std::vector<spdlog::sink_ptr>& sinks) {
  std::vector<Burst> mine;
  std::vector<Burst> peers;
  const Pair all = inRounds(
      kRounds, [&] { return mine.emplace_back(ours(level)).all; },
      [&] { return peers.emplace_back(theirs(sinks)).all; });
  std::size_t next = 0;
  std::size_t nextPeer = 0;
  const Pair caller = inRounds(
      kRounds, [&] { return mine.at(next++).caller; }, [&] { return peers.at(nextPeer++).caller; });
  printRow("log call admitted, time of the caller, " + what, "spdlog async", caller, Unit::kNanoseconds, kLines, "",
           "at most 1", caller.ratio <= 1);
  printRow("lines written a second, " + what, "spdlog async", all, Unit::kRate, kLines, "lines", "at least 1",
           rateRatio(all) >= 1);
}

void benchRefused() {
  constexpr std::uint32_t kCalls = 50'000'000;
  const auto loop = [](const auto& body) {
    return secondsOf([&] {
      for (std::uint32_t i = 0; i < kCalls; ++i) {
        sink = i;  // keeps the compiler from removing the loop
        body(i);
      }
    });
  };
  const Pair pair = inRounds(
      kRounds,
      [&] { return loop([](std::uint32_t i) { CORE::log(CORE::kTrace, L"WinHttpRequest::write(): block %u", i); }); },
      [&] { return loop([](std::uint32_t) {}); });
  const double more = (pair.ours - pair.peer) / kCalls * 1e9;
  printRow("log call not admitted", "empty loop", pair, Unit::kNanoseconds, kCalls, "", "at most 2 ns more", more <= 2);
}

}  // namespace

void benchLog(const std::filesystem::path& folder) {
  RealWindows windows(folder);
  CORE::corelogger::instance().start(L"mdDCT.exe");
  benchRefused();
  printPair("one file (DEBUG)", CORE::kDebug, {fileSink(folder / "peer-debug.txt")});
  printPair("two files (INFO)", CORE::kInfo,
            {fileSink(folder / "peer-debug2.txt"), fileSink(folder / "peer-info2.txt")});
  CORE::corelogger::instance().stop();
}

}  // namespace bench
