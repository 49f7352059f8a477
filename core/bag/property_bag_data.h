#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "core/base/counted.h"
#include "core/text/corestring.h"

namespace CORE {

class PropertyBagData;

/// One named entry of a bag: a string value, or a nested bag (then the value is empty).
class PropertyEntry : public Counted {
 public:
  PropertyEntry(wstr entryName, wstr entryValue) : name(std::move(entryName)), value(std::move(entryValue)) {}
  PropertyEntry(wstr entryName, CountedPtr<PropertyBagData> nested)
      : name(std::move(entryName)), bag(std::move(nested)) {}

  static void destroy(PropertyEntry* entry) noexcept;

  wstr name;
  wstr value;
  CountedPtr<PropertyBagData> bag;
};

/// The entries of a bag in insertion order, shared by handles and parent entries. One thread at a time, but for the
/// reference counts.
class PropertyBagData : public Counted {
 public:
  /// Releases everything below as well, without recursion: bags from outside are nested as deep as their text is long.
  static void destroy(PropertyBagData* data) noexcept;

  /// The first entry of that name (any case, user's default locale); null when there is none.
  PropertyEntry* find(std::wstring_view name) const;
  void append(wstr name, wstr value);
  /// Appends the nested bag and returns its data, which the new entry keeps.
  PropertyBagData* append(wstr name, CountedPtr<PropertyBagData> nested);
  /// Appends a deep copy of every entry of the source, which may be this very data or hold it.
  void cloneFrom(const PropertyBagData& source);

  std::vector<CountedPtr<PropertyEntry>> entries;

 private:
  PropertyBagData* nextDead_ = nullptr;
};

}  // namespace CORE
