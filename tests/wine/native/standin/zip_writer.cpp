#include "tests/wine/native/standin/zip_writer.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <functional>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace standin {
namespace {

const std::string kName = "dct/agent.data";
constexpr std::uint64_t kLocalHeader = 30;
constexpr std::uint64_t kCentralHeader = 46;
constexpr std::uint64_t kEndRecord = 22;
constexpr std::uint64_t kLargestArchive = 0xFFFFFFFF;

// Little-endian numbers one after the other, each with its size in bytes.
std::string record(const std::vector<std::pair<std::uint64_t, int>>& fields) {
  std::string bytes;
  for (const auto& [value, size] : fields) {
    for (int i = 0; i < size; ++i) {
      bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    }
  }
  return bytes;
}

// CRC-32, reflected 0x04C11DB7.
constexpr auto kChecksums = [] {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    table[byte] = byte;
    for (int bit = 0; bit < 8; ++bit) {
      table[byte] = (table[byte] >> 1) ^ ((table[byte] & 1) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return table;
}();

// Writes that many bytes and gives their checksum.
std::uint32_t writeData(std::ofstream& file, std::uint64_t size) {
  std::mt19937_64 random;  // with its own seed: the same bytes every time
  std::vector<std::uint64_t> words(1 << 17);
  std::uint32_t checksum = 0xFFFFFFFF;
  for (std::uint64_t left = size; left > 0;) {
    std::generate(words.begin(), words.end(), std::ref(random));
    const auto bytes = std::as_bytes(std::span(words));
    const auto part = bytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, bytes.size())));
    for (const std::byte byte : part) {
      checksum = (checksum >> 8) ^ kChecksums[(checksum ^ std::to_integer<std::uint32_t>(byte)) & 0xFF];
    }
    file.write(reinterpret_cast<const char*>(part.data()), static_cast<std::streamsize>(part.size()));
    left -= part.size();
  }
  return ~checksum;
}

// The fields that a local and a central header share: stored, 1980-01-01 00:00, name, no extra field.
std::string description(std::uint32_t checksum, std::uint64_t size) {
  return record({{10, 2}, {0, 6}, {0x21, 2}, {checksum, 4}, {size, 4}, {size, 4}, {kName.size(), 2}, {0, 2}});
}

}  // namespace

bool writeZip(const std::filesystem::path& path, std::uint64_t size) {
  if (size < kEndRecord || size > kLargestArchive) {
    return false;
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  const std::uint64_t cost = kLocalHeader + kCentralHeader + 2 * kName.size() + kEndRecord;
  const bool empty = size < cost;
  std::string directory;
  if (!empty) {
    const std::uint64_t start = kLocalHeader + kName.size();
    file.seekp(static_cast<std::streamoff>(start));
    const std::string shared = description(writeData(file, size - cost), size - cost);
    file.seekp(0);
    file << record({{0x04034B50, 4}}) << shared << kName;
    file.seekp(static_cast<std::streamoff>(start + size - cost));
    directory = record({{0x02014B50, 4}, {20, 2}}) + shared + record({{0, 6}, {0, 8}}) + kName;
  }
  const std::uint64_t count = empty ? 0 : 1;
  const std::uint64_t comment = empty ? size - kEndRecord : 0;
  const std::uint64_t directoryAt = size - kEndRecord - comment - directory.size();
  file << directory << record({{0x06054B50, 4}, {0, 4}, {count, 2}, {count, 2}, {directory.size(), 4}});
  file << record({{directoryAt, 4}, {comment, 2}}) << std::string(comment, '#');
  file.close();
  return file.good();
}

}  // namespace standin
