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

/// The entries of a bag in the order in which they were added. Handles and the entries of other bags share it. One
/// thread at a time uses it, but any thread may change the reference counts.
class PropertyBagData : public Counted {
 public:
  /// Also releases everything below, without recursion: a bag that was read from a text can be nested as deep as that
  /// text is long.
  static void destroy(PropertyBagData* data) noexcept;

  /// Returns the first entry of that name (without case, user's default locale); null when there is none.
  PropertyEntry* find(std::wstring_view name) const;
  void append(wstr name, wstr value);
  /// Appends an entry that holds a bag, and returns the bag's data, which the entry owns.
  PropertyBagData* append(wstr name, CountedPtr<PropertyBagData> nested);
  /// Appends a deep copy of every entry of the source, which may be this very data, or hold it somewhere below.
  void cloneFrom(const PropertyBagData& source);

  std::vector<CountedPtr<PropertyEntry>> entries;

 private:
  PropertyBagData* nextDead_ = nullptr;  ///< only inside destroy()
};

}  // namespace CORE
