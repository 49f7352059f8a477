#include "core/bag/property_bag_data.h"

#include <iterator>
#include <utility>

#include "core/text/text.h"

namespace CORE {

void PropertyEntry::destroy(PropertyEntry* entry) noexcept { delete entry; }

void PropertyBagData::destroy(PropertyBagData* data) noexcept {
  // A release must not allocate. So the list of what is still to be destroyed is linked through the objects themselves.
  while (data != nullptr) {
    PropertyBagData* rest = data->nextDead_;
    for (CountedPtr<PropertyEntry>& owner : data->entries) {
      PropertyEntry* entry = owner.release();
      if (!entry->dropRef()) {
        continue;
      }
      PropertyBagData* nested = entry->bag.release();
      delete entry;
      if (nested != nullptr && nested->dropRef()) {
        nested->nextDead_ = std::exchange(rest, nested);
      }
    }
    delete std::exchange(data, rest);
  }
}

PropertyEntry* PropertyBagData::find(std::wstring_view name) const {
  for (const auto& entry : entries) {
    if (equalText(entry->name, name, true)) {
      return entry.get();
    }
  }
  return nullptr;
}

void PropertyBagData::append(wstr name, wstr value) {
  entries.push_back(CountedPtr(new PropertyEntry(std::move(name), std::move(value))));
}

PropertyBagData* PropertyBagData::append(wstr name, CountedPtr<PropertyBagData> nested) {
  PropertyBagData* data = nested.get();
  entries.push_back(CountedPtr(new PropertyEntry(std::move(name), std::move(nested))));
  return data;
}

void PropertyBagData::cloneFrom(const PropertyBagData& source) {
  // The copy is complete before this data changes: the source may be this data, and memory may run out on the way.
  const CountedPtr<PropertyBagData> copy(new PropertyBagData);
  std::vector<std::pair<const PropertyBagData*, PropertyBagData*>> open = {{&source, copy.get()}};
  while (!open.empty()) {
    const auto [from, to] = open.back();
    open.pop_back();
    to->entries.reserve(from->entries.size());
    for (const auto& entry : from->entries) {
      if (entry->bag) {
        open.emplace_back(entry->bag.get(), to->append(entry->name, CountedPtr(new PropertyBagData)));
      } else {
        to->append(entry->name, entry->value);
      }
    }
  }
  entries.reserve(entries.size() + copy->entries.size());
  std::move(copy->entries.begin(), copy->entries.end(), std::back_inserter(entries));
  copy->entries.clear();
}

}  // namespace CORE
