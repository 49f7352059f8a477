#include "tests/wine/native/standin/zip_writer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace standin {
namespace {

constexpr std::uint64_t kEndRecord = 22;
constexpr std::uint64_t kLocalHeader = 30;
constexpr std::uint64_t kCentralHeader = 46;
constexpr std::uint64_t kNameLength = 19;  // "dct/agent-0001.data"
constexpr std::uint64_t kEntryCost = kLocalHeader + kCentralHeader + 2 * kNameLength;
constexpr std::uint64_t kLargestEntry = 64 << 20;
constexpr std::uint64_t kLargestArchive = 0xFFFFFFFF;
constexpr std::size_t kBufferSize = 1 << 20;

struct Entry {
  std::string name;
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  std::uint32_t checksum = 0;
};

// Little-endian fields, one after the other.
class Record {
 public:
  Record& u16(std::uint64_t value) { return number(value, 2); }
  Record& u32(std::uint64_t value) { return number(value, 4); }
  Record& text(std::string_view value) {
    bytes_ += value;
    return *this;
  }
  const std::string& bytes() const { return bytes_; }

 private:
  Record& number(std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) {
      bytes_ += static_cast<char>(value >> (8 * i) & 0xFF);
    }
    return *this;
  }

  std::string bytes_;
};

// CRC-32 (reflected 0x04C11DB7), eight bytes a step; row n is the effect of a byte n positions before the last.
constexpr auto kChecksumTables = [] {
  std::array<std::array<std::uint32_t, 256>, 8> tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t value = byte;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value >> 1) ^ ((value & 1) != 0 ? 0xEDB88320U : 0U);
    }
    tables[0][byte] = value;
  }
  for (std::size_t row = 1; row < tables.size(); ++row) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[row - 1][byte];
      tables[row][byte] = (before >> 8) ^ tables[0][before & 0xFF];
    }
  }
  return tables;
}();

std::uint32_t checksum(std::uint32_t state, const char* data, std::size_t size) {
  std::size_t at = 0;
  for (; at + 8 <= size; at += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, data + at, sizeof(word));
    word ^= state;
    state = 0;
    for (std::size_t i = 0; i < 8; ++i) {
      state ^= kChecksumTables[7 - i][word >> (8 * i) & 0xFF];
    }
  }
  for (; at < size; ++at) {
    state = (state >> 8) ^ kChecksumTables[0][(state ^ static_cast<unsigned char>(data[at])) & 0xFF];
  }
  return state;
}

// Fills with a xorshift sequence (Marsaglia, "Xorshift RNGs", 2003): fast, and no packer finds anything in it.
void fill(std::vector<char>& buffer, std::uint64_t& state) {
  for (std::size_t at = 0; at + 8 <= buffer.size(); at += 8) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    std::memcpy(buffer.data() + at, &state, sizeof(state));
  }
}

// The fields that a local and a central header share: stored, 1980-01-01 00:00.
Record& describe(Record& record, const Entry& entry) {
  return record.u16(10).u16(0).u16(0).u16(0).u16(0x21).u32(entry.checksum).u32(entry.size).u32(entry.size);
}

std::string localHeader(const Entry& entry) {
  Record record;
  return describe(record.u32(0x04034B50), entry).u16(kNameLength).u16(0).text(entry.name).bytes();
}

std::string centralHeader(const Entry& entry) {
  Record record;
  describe(record.u32(0x02014B50).u16(20), entry);
  return record.u16(kNameLength).u16(0).u16(0).u16(0).u16(0).u32(0).u32(entry.offset).text(entry.name).bytes();
}

std::string endRecord(std::uint64_t count, std::uint64_t directory, std::uint64_t offset, std::uint64_t comment) {
  Record record;
  record.u32(0x06054B50).u16(0).u16(0).u16(count).u16(count).u32(directory).u32(offset).u16(comment);
  return record.text(std::string(comment, '#')).bytes();
}

// The header is written twice: the checksum is known only after the data.
void writeEntry(std::ofstream& file, Entry& entry, std::uint64_t& state, std::vector<char>& buffer) {
  file.seekp(static_cast<std::streamoff>(entry.offset + kLocalHeader + kNameLength));
  std::uint32_t sum = 0xFFFFFFFF;
  for (std::uint64_t left = entry.size; left > 0;) {
    const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
    fill(buffer, state);
    sum = checksum(sum, buffer.data(), part);
    file.write(buffer.data(), static_cast<std::streamsize>(part));
    left -= part;
  }
  entry.checksum = ~sum;
  const std::string header = localHeader(entry);
  file.seekp(static_cast<std::streamoff>(entry.offset));
  file.write(header.data(), static_cast<std::streamsize>(header.size()));
}

// Entries that fill the archive exactly, the last one taking the rest; none when there is no room for one.
std::vector<Entry> planEntries(std::uint64_t size) {
  const std::uint64_t room = size - kEndRecord;
  if (room < kEntryCost) {
    return {};
  }
  const std::uint64_t count = std::max<std::uint64_t>(1, (room + kLargestEntry - 1) / kLargestEntry);
  const std::uint64_t data = room - count * kEntryCost;
  std::vector<Entry> entries(count);
  std::uint64_t offset = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::string number = std::to_string(i + 1);
    entries[i].name = "dct/agent-" + std::string(4 - number.size(), '0') + number + ".data";
    entries[i].offset = offset;
    entries[i].size = static_cast<std::uint32_t>(i + 1 < count ? data / count : data - data / count * (count - 1));
    offset += kLocalHeader + kNameLength + entries[i].size;
  }
  return entries;
}

}  // namespace

bool writeZip(const std::filesystem::path& path, std::uint64_t size, std::uint64_t seed) {
  if (size < kEndRecord || size > kLargestArchive) {
    return false;
  }
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  std::vector<Entry> entries = planEntries(size);
  std::vector<char> buffer(kBufferSize);
  std::uint64_t state = seed * 0x9E3779B97F4A7C15 + 1;  // never 0, where the sequence would stay
  std::uint64_t directoryAt = 0;
  for (Entry& entry : entries) {
    writeEntry(file, entry, state, buffer);
    directoryAt = entry.offset + kLocalHeader + kNameLength + entry.size;
  }
  std::string tail;
  for (const Entry& entry : entries) {
    tail += centralHeader(entry);
  }
  const std::uint64_t comment = entries.empty() ? size - kEndRecord : 0;
  tail += endRecord(entries.size(), entries.size() * (kCentralHeader + kNameLength), directoryAt, comment);
  file.seekp(static_cast<std::streamoff>(directoryAt));
  file.write(tail.data(), static_cast<std::streamsize>(tail.size()));
  file.close();
  return file.good();
}

}  // namespace standin
