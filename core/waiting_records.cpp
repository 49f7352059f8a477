#include "core/waiting_records.h"

#include "core/convert.h"

namespace CORE {
namespace {

/// Bytes of text that are kept for later; a burst may have needed much more.
constexpr std::size_t kKeptBytes = 1 << 20;

}  // namespace

void WaitingRecords::add(const LogRecord& record) {
  Entry entry{record.time, texts_.size(), 0, 0, 0, record.level, record.tickCount, record.threadId};
  appendUtf8Lossy(texts_, record.label);
  entry.context = texts_.size();
  appendUtf8Lossy(texts_, record.context);
  entry.message = texts_.size();
  appendUtf8Lossy(texts_, record.message);
  entry.end = texts_.size();
  entries_.push_back(entry);
}

WaitingRecord WaitingRecords::at(std::size_t index) const {
  const Entry& entry = entries_[index];
  const auto text = [this](std::size_t from, std::size_t to) {
    return std::string_view(texts_).substr(from, to - from);
  };
  return {entry.level,
          text(entry.begin, entry.context),
          text(entry.message, entry.end),
          text(entry.context, entry.message),
          entry.time,
          entry.tickCount,
          entry.threadId};
}

void WaitingRecords::clear() {
  if (texts_.capacity() > kKeptBytes) {
    *this = WaitingRecords();
  }
  entries_.clear();
  texts_.clear();
}

}  // namespace CORE
