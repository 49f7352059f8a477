#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/bag/property_bag_data.h"
#include "core/text/corestring.h"

namespace CORE {

/// The framework's general record: an ordered list of named strings and nested bags.
///
/// A bag is a handle on data that it co-owns: a copy, and a nested bag got with getBag, share the data of the original,
/// so a change through one is seen through all. Names are compared in any case (user's default locale) and need not be
/// unique; a look-up by name finds the first. Values keep the binary and secret marks. Handles on the same data may be
/// destroyed on different threads; otherwise one bag is used by one thread at a time. Nothing here recurses over the
/// nesting. A bag must not be put, undivided, into itself or below itself.
///
/// Every operation throws coreException("OutOfMem") when memory runs out; look-ups by name never throw otherwise.
class PropertyBag {
 public:
  PropertyBag();
  /// Shares the data of the other handle.
  PropertyBag(const PropertyBag&) = default;
  PropertyBag& operator=(const PropertyBag&) = default;
  virtual ~PropertyBag() = default;

  std::size_t count() const { return data_->entries.size(); }
  /// The string of that name; the default when it is missing or a bag.
  wstr get(std::wstring_view name, const wstr& defaultText = {}) const;
  /// The string of that name as a signed 32-bit number (textToInt32); the default when it is missing or a bag.
  std::int32_t getInt(std::wstring_view name, std::int32_t defaultNumber) const;
  /// \throws coreException "PropertyBag: name '...' does not exist as bag".
  PropertyBag getBag(std::wstring_view name) const;
  /// \throws coreException "PropertyBag: index is out of range or not a bag".
  PropertyBag getBag(std::size_t index) const;
  /// \throws coreException "PropertyBag: index is out of range".
  wstr getName(std::size_t index) const;
  bool isBag(std::wstring_view name) const;
  /// \throws coreException "PropertyBag: index is out of range".
  bool isBag(std::size_t index) const;

  /// Replaces the value of the first entry of that name (a bag in it is released), or appends an entry.
  void set(std::wstring_view name, wstr value);
  /// Appends an entry, also beside others of that name.
  void add(std::wstring_view name, wstr value);
  /// Appends a nested bag: a deep copy of it, or its own data.
  void addBag(std::wstring_view name, const PropertyBag& bag, bool deepCopy);
  void clear() { data_->entries.clear(); }
  /// Appends a deep copy of every entry of the source.
  void clone(const PropertyBag& source);

  /// Makes this an error result: "ErrorCode" is the code in decimal, "ErrorText" the trimmed text or, when nothing is
  /// left of it, the system's message for the code (and no entry when there is none).
  void setError(std::uint32_t code, std::wstring_view text = {});
  /// Makes this an error result with an "ErrorText" only.
  void setErrorText(std::wstring_view text);
  /// "ErrorCode"; 0xFFFFFFFF when that is 0 or missing but there is an "ErrorText".
  std::uint32_t getErrorCode() const;
  /// "ErrorText"; without one "ErrorCode %u (0x%x)" for a code other than 0; without either the default.
  wstr getErrorText(const wstr& defaultText = {}) const;

  /// The text form for the log: an entry a line, three blanks a level, name = "value", nested bags below their names.
  /// Binary values show as <BINARY>; a NUL becomes a blank.
  /// \param separator  ends each line.
  /// \param mask  whether values with sensitive names (isSensitiveName) show as "*****".
  /// \param limit  most characters of the result; the rest is left out.
  /// \throws coreException "OutOfMem" also for a text that a framework string cannot hold (2^31 bytes of UTF-16): the
  ///         indentation makes the text of a deep bag grow with the square of its depth.
  std::wstring toString(std::wstring_view separator, bool mask, std::size_t limit = static_cast<std::size_t>(-1)) const;

  /// Rebuilds the bag from quoted names with quoted values or braces, as in {"a":"1","b":{"z":"2"}}. No JSON: no
  /// escapes, numbers, literals or arrays; what is not a quote or a brace is skipped, and braces in quotes count as
  /// structure. Linear in time and memory whatever the text is.
  /// \return false when the text is not of that form; the bag is then empty, or as it was when there is no double quote
  ///         in the text at all.
  bool parse(std::wstring text);

 private:
  explicit PropertyBag(CountedPtr<PropertyBagData> data) : data_(std::move(data)) {}
  const PropertyEntry& entryAt(std::size_t index) const;

  CountedPtr<PropertyBagData> data_;
};

}  // namespace CORE
