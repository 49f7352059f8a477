#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock.h"

namespace CORE {

/// One log record as its log call makes it. The texts belong to the caller.
struct LogRecord {
  std::uint32_t level = 0;
  std::wstring_view label;  ///< stands in the line in place of the level's name; empty for that name
  std::wstring_view message;
  std::wstring_view context;    ///< the logging context of the thread
  platform::FileTime time = 0;  ///< GetSystemTimeAsFileTime at creation
  std::uint32_t tickCount = 0;  ///< GetTickCount at creation, milliseconds
  std::uint32_t threadId = 0;
};

/// Makes a record of the calling thread and of this moment. The texts are not copied.
LogRecord makeLogRecord(std::uint32_t level, std::wstring_view label, std::wstring_view message);

/// A record that waits for the writer. The texts are UTF-8 and belong to the RecordBuffer.
struct BufferedRecord {
  std::uint32_t level = 0;
  std::string_view label;
  std::string_view message;
  std::string_view context;
  platform::FileTime time = 0;
  std::uint32_t tickCount = 0;
  std::uint32_t threadId = 0;
};

/// Records in the order of their calls. Their texts lie one behind the other in shared memory, so that no log call
/// allocates memory that the writer thread would have to free. Blocks hold them, so that a burst of records never moves
/// those that wait already. The owner's lock guards the object.
class RecordBuffer {
 public:
  void add(const LogRecord& record);
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  BufferedRecord at(std::size_t index) const;
  /// Removes all records. The memory of the first blocks stays for the next ones.
  void clear();

 private:
  struct Entry {
    platform::FileTime time;
    std::size_t begin;  ///< positions in the block's texts: label, then context, then message
    std::size_t context;
    std::size_t message;
    std::size_t end;
    std::uint32_t level;
    std::uint32_t tickCount;
    std::uint32_t threadId;
  };

  struct Block {
    std::vector<Entry> entries;
    std::string texts;
  };
  static constexpr std::size_t kBlockRecords = 1024;

  Block& blockOf(std::size_t index);

  std::vector<Block> blocks_;  ///< the full ones, then the one that is being filled, then spare ones
  std::size_t size_ = 0;
};

}  // namespace CORE
