#include <cstring>
#include <string>

#include "bench/benchmarks.h"
#include "bench/harness.h"
#include "bench/real_windows.h"
#include "core/log/log_line.h"
#include "core/redaction/legacy_word.h"

namespace bench {
namespace {

/// Returns a text like those of the log. Its only letter V is the first one of the masked word, at the end.
std::string textOf(std::size_t characters) {
  constexpr std::string_view kPiece = "AzureBlobUploader::upload(): block 17 of bundle.zip has been written; ";
  std::string text;
  while (text.size() < characters) {
    text += kPiece;
  }
  text.resize(characters - 3);
  return text + "VTX";
}

void benchSize(const std::string& what, std::size_t characters) {
  const std::size_t calls = (std::size_t{32} << 20) / characters;
  std::string text = textOf(characters);
  const auto repeat = [&](const auto& body) {
    return secondsOf([&] {
      for (std::size_t i = 0; i < calls; ++i) {
        text[characters - 3] = 'V';
        body();
      }
    });
  };
  const Pair pair = inRounds(
      9,
      [&] {
        return repeat([&] {
          text[characters - 2] = 'T';
          text[characters - 1] = 'X';
          CORE::maskLegacyWord(text);
        });
      },
      [&] { return repeat([&] { sink = sink + (std::memchr(text.data(), 'V', text.size()) != nullptr); }); });
  const double megabytes = static_cast<double>(calls * characters) / 1e6;
  printRow("legacy masking, " + what, "memchr", pair, Unit::kRate, megabytes, "MB", "at least 1000 MB/s",
           megabytes / pair.ours >= 1000);
}

}  // namespace

void benchMasking(const std::filesystem::path& folder) {
  const RealWindows windows(folder);
  benchSize("8192 characters", 8192);
  benchSize("1 Mi characters", std::size_t{1} << 20);
  benchSize("16 Mi characters", std::size_t{16} << 20);
}

}  // namespace bench
