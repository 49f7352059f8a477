#include "core/redaction/legacy_word.h"

#include <algorithm>

namespace CORE {
namespace {

constexpr std::size_t kMaskBlock = 64;

/// Whether the word's first two letters occur in the block, which they hardly ever do. The loop has no branch, so that
/// the compiler can use vector instructions. It reads one character behind the block.
bool holdsStartOfWord(const char* block) {
  unsigned char found = 0;
  for (std::size_t i = 0; i < kMaskBlock; ++i) {
    const bool starts = ((block[i] | 0x20) == 'v') & ((block[i + 1] | 0x20) == 't');
    found = static_cast<unsigned char>(found | static_cast<unsigned char>(starts));
  }
  return found != 0;
}

}  // namespace

void maskLegacyWord(std::string& text, std::size_t from) {
  // Comparing ASCII letters is enough: no character outside ASCII has one of these letters as its lower case.
  const auto is = [&text](std::size_t at, char small) { return (text[at] | 0x20) == small; };
  const std::size_t end = std::max<std::size_t>(text.size(), 2) - 2;
  for (std::size_t at = from; at < end;) {
    if (at + kMaskBlock < text.size() && !holdsStartOfWord(text.data() + at)) {
      at += kMaskBlock;
      continue;
    }
    for (const std::size_t stop = std::min(at + kMaskBlock, end); at < stop; ++at) {
      if (is(at, 'v') && is(at + 1, 't') && is(at + 2, 'x')) {
        text.replace(at, 3, 3, '*');
      }
    }
  }
}

}  // namespace CORE
