// log_lines FOLDER: measures how fast log lines are written on this platform, and prints the rows. Our files go where
// the settings of the log put them. The peer writes into FOLDER.

#include <spdlog/async.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "bench/harness.h"
#include "core/log/log.h"
#include "core/log/log_context.h"
#include "core/log/logger.h"
#include "platform/platform.h"
#include "platform/windows/windows_platform.h"

namespace {

constexpr std::uint32_t kLines = 100'000;
constexpr std::size_t kQueue = 150'000;  // as the product's own setting
constexpr int kRounds = 7;

double burst(const std::function<void(std::uint32_t)>& log, const std::function<void()>& flush) {
  return bench::secondsOf([&] {
    for (std::uint32_t i = 0; i < kLines; ++i) {
      log(i);
    }
    flush();
  });
}

double ours(CORE::LogLevel level) {
  static const std::wstring name = L"bundle-2026-11-13.zip";
  return burst(
      [level](std::uint32_t i) {
        CORE::log(level, L"AzureBlobUploader::upload(): block %u of %s has been written", i, name);
      },
      [] { CORE::corelogger::instance().flush(); });
}

double theirs(const std::shared_ptr<spdlog::sinks::basic_file_sink_st>& file) {
  static const std::string name = "bundle-2026-11-13.zip";
  auto pool = std::make_shared<spdlog::details::thread_pool>(kQueue, 1);
  const auto logger =
      std::make_shared<spdlog::async_logger>("log_lines.exe", file, pool, spdlog::async_overflow_policy::block);
  logger->set_level(spdlog::level::debug);
  return burst(
      [&](std::uint32_t i) { logger->debug("AzureBlobUploader::upload(): block {} of {} has been written", i, name); },
      [&] {
        pool.reset();  // writes what is queued, then joins the thread
        file->flush();
      });
}

void printLines(const std::string& what, CORE::LogLevel level, const std::filesystem::path& peerFile) {
  auto file = std::make_shared<spdlog::sinks::basic_file_sink_st>(peerFile.string(), true);
  file->set_formatter(std::make_unique<spdlog::pattern_formatter>(
      "%Y-%m-%dT%H:%M:%S.%eZ %^%l%$ (%P-%t) <worker> [%n] %v", spdlog::pattern_time_type::utc, "\r\n"));
  const bench::Pair pair = bench::inRounds(
      kRounds, [&] { return ours(level); }, [&] { return theirs(file); });
  bench::printRow("lines written a second under Wine, " + what, "spdlog async", pair, bench::Unit::kRate, kLines,
                  "lines", "at least 500,000 lines/s", kLines / pair.ours >= 500'000);
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 2) {
    std::fputs("usage: log_lines FOLDER\n", stderr);
    return 2;
  }
  platform::install(&platform::windowsPlatform());
  CORE::corelogger::instance().start(L"log_lines");
  const std::filesystem::path folder = arguments[1];
  printLines("one file (DEBUG)", CORE::kDebug, folder / "peer.txt");
  printLines("two files (INFO), beside one of the peer's", CORE::kInfo, folder / "peer2.txt");
  CORE::corelogger::instance().flush();
  return 0;
}
