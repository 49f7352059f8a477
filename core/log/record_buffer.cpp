#include "core/log/record_buffer.h"

#include <algorithm>

#include "core/base/unicode.h"
#include "core/log/log_context.h"
#include "platform/platform.h"
#include "platform/processes.h"

namespace CORE {
namespace {

constexpr std::size_t kUsualRecordBytes = 128;
// What clear() keeps: the blocks of a burst that is well ahead of the writer, some 12 MiB, but no block whose texts
// have grown beyond the second number.
constexpr std::size_t kMaxKeptBlocks = 64;
constexpr std::size_t kMaxKeptTextBytes = 256 << 10;

}  // namespace

LogRecord makeLogRecord(std::uint32_t level, std::wstring_view label, std::wstring_view message) {
  const platform::Platform& platform = platform::current();
  return {level,
          label,
          message,
          logContext(),
          platform.clock.GetSystemTimeAsFileTime(),
          platform.clock.GetTickCount(),
          platform.processes.GetCurrentThreadId()};
}

RecordBuffer::Block& RecordBuffer::blockOf(std::size_t index) {
  const std::size_t number = index / kBlockRecords;
  if (number == blocks_.size()) {
    Block block;
    block.entries.reserve(kBlockRecords);
    block.texts.reserve(kBlockRecords * kUsualRecordBytes);
    blocks_.push_back(std::move(block));
  }
  return blocks_[number];
}

void RecordBuffer::add(const LogRecord& record) {
  Block& block = blockOf(size_);
  std::string& texts = block.texts;
  Entry entry{record.time, texts.size(), 0, 0, 0, record.level, record.tickCount, record.threadId};
  appendUtf8Lossy(texts, record.label);
  entry.context = texts.size();
  appendUtf8Lossy(texts, record.context);
  entry.message = texts.size();
  appendUtf8Lossy(texts, record.message);
  entry.end = texts.size();
  block.entries.push_back(entry);
  ++size_;
}

BufferedRecord RecordBuffer::at(std::size_t index) const {
  const Block& block = blocks_[index / kBlockRecords];
  const Entry& entry = block.entries[index % kBlockRecords];
  const auto text = [&block](std::size_t from, std::size_t to) {
    return std::string_view(block.texts).substr(from, to - from);
  };
  return {entry.level,
          text(entry.begin, entry.context),
          text(entry.message, entry.end),
          text(entry.context, entry.message),
          entry.time,
          entry.tickCount,
          entry.threadId};
}

void RecordBuffer::clear() {
  blocks_.resize(std::min(blocks_.size(), kMaxKeptBlocks));
  std::erase_if(blocks_, [](const Block& block) { return block.texts.capacity() > kMaxKeptTextBytes; });
  for (Block& block : blocks_) {
    block.entries.clear();
    block.texts.clear();
  }
  size_ = 0;
}

}  // namespace CORE
