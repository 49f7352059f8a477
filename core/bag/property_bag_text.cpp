#include <algorithm>
#include <limits>
#include <vector>

#include "core/bag/property_bag.h"
#include "core/base/exception.h"
#include "core/base/memory_guard.h"
#include "core/redaction/masks.h"
#include "core/redaction/sensitive_names.h"

namespace CORE {
namespace {

constexpr std::size_t kBlanksPerLevel = 3;
/// The longest text whose length in bytes a framework string can hold, in characters of two bytes.
constexpr std::size_t kMaxCharacters = 0x7FFFFFFFU / 2;

/// Receives the pieces of the text and only counts their characters.
struct Counter {
  std::size_t size = 0;
  std::size_t limit;

  bool full() const { return size >= limit; }
  void blanks(std::size_t count) { add(count); }
  void text(std::wstring_view piece) { add(piece.size()); }
  void add(std::size_t count) { size += std::min(count, limit - size); }
};

/// Receives the pieces of the text and joins them.
struct Writer {
  std::wstring out;
  std::size_t limit;

  bool full() const { return out.size() >= limit; }
  void blanks(std::size_t count) { out.append(std::min(count, limit - out.size()), L' '); }
  void text(std::wstring_view piece) { out.append(piece.substr(0, limit - out.size())); }
};

/// A bag that is being written, and the entry that comes next.
struct Level {
  const PropertyBagData* data;
  std::size_t next;
};

template <class Sink>
void putValue(Sink& sink, const PropertyEntry& entry, bool mask) {
  if (entry.value.isBinary() && entry.value.byteLength() != 0) {
    sink.text(kBinaryMask);
    return;
  }
  sink.text(L"\"");
  sink.text(mask && isSensitiveName(entry.name) ? kSecretMask : std::wstring_view(entry.value));
  sink.text(L"\"");
}

template <class Sink>
void putText(Sink& sink, const PropertyBagData& top, std::wstring_view separator, bool mask) {
  std::vector<Level> levels = {{&top, 0}};
  while (!levels.empty() && !sink.full()) {
    Level& level = levels.back();
    if (level.next == level.data->entries.size()) {
      levels.pop_back();
      continue;
    }
    const PropertyEntry& entry = *level.data->entries[level.next++];
    sink.blanks(kBlanksPerLevel * levels.size());
    sink.text(entry.name);
    sink.text(L" = ");
    if (entry.bag) {
      levels.push_back({entry.bag.get(), 0});
    } else {
      putValue(sink, entry, mask);
    }
    sink.text(separator);
  }
}

}  // namespace

std::wstring PropertyBag::toString(std::wstring_view separator, bool mask, std::size_t limit) const {
  return guardMemory([&] {
    // Counted first, so that a text that is too long costs no memory.
    Counter counter{0, std::min(limit, kMaxCharacters + 1)};
    putText(counter, *data_, separator, mask);
    if (counter.size > kMaxCharacters) {
      throwOutOfMemory();
    }
    Writer writer{{}, counter.size};
    writer.out.reserve(counter.size);
    putText(writer, *data_, separator, mask);
    std::replace(writer.out.begin(), writer.out.end(), L'\0', L' ');
    return std::move(writer.out);
  });
}

}  // namespace CORE
