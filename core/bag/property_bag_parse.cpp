#include <optional>
#include <vector>

#include "core/bag/property_bag.h"
#include "core/base/memory_guard.h"

namespace CORE {
namespace {

/// What a search has found.
enum class Hit {
  kQuote,
  kOpen,      ///< a "{", when the search stops at one
  kScopeEnd,  ///< the "}" that ends the innermost nested bag
  kTextEnd,
};

/// Reads a text in one pass over its characters.
///
/// A nested bag ends at the "}" that closes its own "{", where braces inside quotes count too. No search looks beyond
/// that end. The end need not be known in advance, because every failure ends the whole reading with the same result:
/// it is enough to notice the end when the pass reaches it.
class Reader {
 public:
  Reader(const std::wstring& text, PropertyBagData& top) : text_(text), scopes_{{&top, kNeverCloses}} {}

  bool run() {
    std::size_t quotesFrom = 1;  // kept: a quote in the first place, where "{" is expected, is not seen
    for (;;) {
      switch (find(quotesFrom, false)) {
        case Hit::kTextEnd:
          return scopes_.size() == 1;
        case Hit::kScopeEnd:
          if (scopes_.back().data->entries.empty()) {
            return false;  // no double quote between the braces
          }
          scopes_.pop_back();
          quotesFrom = at_ + 1;  // kept: the character behind a nested bag is skipped
          break;
        default:
          if (!readEntry()) {
            return false;
          }
          quotesFrom = at_;
          break;
      }
    }
  }

 private:
  struct Scope {
    PropertyBagData* data;
    std::ptrdiff_t closesAt;  ///< the depth of braces at which the bag ends
  };
  static constexpr std::ptrdiff_t kNeverCloses = PTRDIFF_MIN;

  /// Moves behind the next double quote at `quotesFrom` or later, or behind what ends the search before that.
  Hit find(std::size_t quotesFrom, bool stopAtOpen) {
    while (at_ < text_.size()) {
      const std::size_t position = at_++;
      switch (text_[position]) {
        case L'"':
          if (position >= quotesFrom) {
            return Hit::kQuote;
          }
          break;
        case L'{':
          ++depth_;
          if (stopAtOpen) {
            return Hit::kOpen;
          }
          break;
        case L'}':
          if (--depth_ == scopes_.back().closesAt) {
            return Hit::kScopeEnd;
          }
          break;
        default:
          break;
      }
    }
    return Hit::kTextEnd;
  }

  /// Returns the text up to the next double quote; nothing when there is none.
  std::optional<std::wstring_view> readQuoted() {
    const std::size_t start = at_;
    if (find(start, false) != Hit::kQuote) {
      return std::nullopt;
    }
    return std::wstring_view(text_).substr(start, at_ - 1 - start);
  }

  /// Reads an entry, whose first quote has been found: its name, and the value or the "{" that follows. Returns false
  /// when the text ends too early.
  bool readEntry() {
    const auto name = readQuoted();
    if (!name) {
      return false;
    }
    const Hit hit = find(at_ + 1, true);  // kept: a quote right behind the name (where ":" stands) is not seen
    if (hit == Hit::kOpen) {
      PropertyBagData* nested = scopes_.back().data->append(*name, CountedPtr(new PropertyBagData));
      scopes_.push_back({nested, depth_ - 1});
      return true;
    }
    const auto value = hit == Hit::kQuote ? readQuoted() : std::nullopt;
    if (!value) {
      return false;
    }
    scopes_.back().data->append(*name, *value);
    return true;
  }

  const std::wstring& text_;
  std::size_t at_ = 0;
  std::ptrdiff_t depth_ = 0;
  std::vector<Scope> scopes_;
};

}  // namespace

bool PropertyBag::parse(std::wstring text) {
  if (text.find(L'"') == std::wstring::npos) {
    return false;
  }
  clear();
  return guardMemory([&] {
    const CountedPtr<PropertyBagData> read(new PropertyBagData);
    if (!Reader(text, *read).run()) {
      return false;
    }
    data_->entries.swap(read->entries);
    return true;
  });
}

}  // namespace CORE
