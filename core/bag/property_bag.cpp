#include "core/bag/property_bag.h"

#include <utility>

#include "core/base/exception.h"
#include "core/base/memory_guard.h"
#include "core/format/error_text.h"
#include "core/format/format.h"
#include "core/text/number_text.h"
#include "core/text/text.h"

namespace CORE {
namespace {

constexpr std::wstring_view kErrorCode = L"ErrorCode";
constexpr std::wstring_view kErrorText = L"ErrorText";

/// Returns the first entry of that name; null when there is none or it holds a bag.
const PropertyEntry* findString(const PropertyBagData& data, std::wstring_view name) {
  const PropertyEntry* entry = data.find(name);
  return entry != nullptr && !entry->bag ? entry : nullptr;
}

}  // namespace

PropertyBag::PropertyBag() : data_(guardMemory([] { return new PropertyBagData; })) {}

wstr PropertyBag::get(std::wstring_view name, const wstr& defaultText) const {
  const PropertyEntry* entry = findString(*data_, name);
  return entry != nullptr ? entry->value : defaultText;
}

std::int32_t PropertyBag::getInt(std::wstring_view name, std::int32_t defaultNumber) const {
  const PropertyEntry* entry = findString(*data_, name);
  return entry != nullptr ? textToInt32(entry->value) : defaultNumber;
}

PropertyBag PropertyBag::getBag(std::wstring_view name) const {
  const PropertyEntry* entry = data_->find(name);
  if (entry == nullptr || !entry->bag) {
    throw coreException(L"PropertyBag: name '" + std::wstring(name) + L"' does not exist as bag");
  }
  return PropertyBag(entry->bag);
}

PropertyBag PropertyBag::getBag(std::size_t index) const {
  if (index >= count() || !data_->entries[index]->bag) {
    throw coreException(L"PropertyBag: index is out of range or not a bag");
  }
  return PropertyBag(data_->entries[index]->bag);
}

const PropertyEntry& PropertyBag::entryAt(std::size_t index) const {
  if (index >= count()) {
    throw coreException(L"PropertyBag: index is out of range");
  }
  return *data_->entries[index];
}

wstr PropertyBag::getName(std::size_t index) const { return entryAt(index).name; }

bool PropertyBag::isBag(std::wstring_view name) const {
  const PropertyEntry* entry = data_->find(name);
  return entry != nullptr && entry->bag;
}

bool PropertyBag::isBag(std::size_t index) const { return static_cast<bool>(entryAt(index).bag); }

void PropertyBag::set(std::wstring_view name, wstr value) {
  PropertyEntry* entry = data_->find(name);
  if (entry == nullptr) {
    add(name, std::move(value));
    return;
  }
  entry->bag = {};
  entry->value = std::move(value);
}

void PropertyBag::add(std::wstring_view name, wstr value) {
  guardMemory([&] { data_->append(name, std::move(value)); });
}

void PropertyBag::addBag(std::wstring_view name, const PropertyBag& bag, bool deepCopy) {
  guardMemory([&] {
    CountedPtr<PropertyBagData> nested = bag.data_;
    if (deepCopy) {
      nested = CountedPtr(new PropertyBagData);
      nested->cloneFrom(*bag.data_);
    }
    data_->append(name, std::move(nested));
  });
}

void PropertyBag::clone(const PropertyBag& source) {
  guardMemory([&] { data_->cloneFrom(*source.data_); });
}

void PropertyBag::setError(std::uint32_t code, std::wstring_view text) {
  std::wstring shown = guardMemory([&] { return std::wstring(trimmed(text)); });  // a copy: clear() may free the text
  clear();
  set(kErrorCode, format(L"%u", code));
  if (shown.empty()) {
    shown = systemMessageText(code);
  }
  if (!shown.empty()) {
    set(kErrorText, std::move(shown));
  }
}

void PropertyBag::setErrorText(std::wstring_view text) {
  wstr copy(text);  // clear() may free the text
  clear();
  set(kErrorText, std::move(copy));
}

std::uint32_t PropertyBag::getErrorCode() const {
  const std::uint32_t code = textToUint32(get(kErrorCode));
  return code == 0 && !get(kErrorText).empty() ? 0xFFFFFFFFU : code;
}

wstr PropertyBag::getErrorText(const wstr& defaultText) const {
  wstr text = get(kErrorText);
  if (!text.empty()) {
    return text;
  }
  const std::uint32_t code = textToUint32(get(kErrorCode));
  return code != 0 ? wstr(format(L"ErrorCode %u (0x%x)", code, code)) : defaultText;
}

}  // namespace CORE
