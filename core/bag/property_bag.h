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
/// A bag is a handle on data that it shares with others: with its copies, and with the entry that a nested bag came
/// from (getBag). A change through one handle is seen through all. Names are compared without case (user's default
/// locale) and need not be unique; a look-up by name finds the first entry. Values keep their binary and secret marks.
/// Handles on the same data may be destroyed on different threads; apart from that, one thread at a time uses a bag. No
/// operation recurses over the nesting. A bag must not be added, without a deep copy, to itself or to one of its nested
/// bags.
///
/// property_bag.cpp holds the look-ups, the changes and the error entries, property_bag_text.cpp toString(), and
/// property_bag_parse.cpp parse(). The data behind a handle is property_bag_data.h.
///
/// kept: the program calls neither add nor addBag nor clone, but the framework's record has them.
/// \throws coreException "OutOfMem" from every operation when memory runs out; a look-up by name throws nothing else.
class PropertyBag {
 public:
  PropertyBag();
  /// Shares the data of the other handle.
  PropertyBag(const PropertyBag&) = default;
  PropertyBag& operator=(const PropertyBag&) = default;
  virtual ~PropertyBag() = default;

  /// Returns the number of entries.
  std::size_t count() const { return data_->entries.size(); }
  /// Returns the string of that name, or the default when the entry is missing or a bag.
  wstr get(std::wstring_view name, const wstr& defaultText = {}) const;
  /// Returns the string of that name as a number (textToInt32), or the default when the entry is missing or a bag.
  std::int32_t getInt(std::wstring_view name, std::int32_t defaultNumber) const;
  /// Returns a handle on the nested bag of that name.
  /// \throws coreException "PropertyBag: name '...' does not exist as bag".
  PropertyBag getBag(std::wstring_view name) const;
  /// Returns a handle on the nested bag at that place.
  /// \throws coreException "PropertyBag: index is out of range or not a bag".
  PropertyBag getBag(std::size_t index) const;
  /// Returns the name of the entry at that place.
  /// \throws coreException "PropertyBag: index is out of range".
  wstr getName(std::size_t index) const;
  /// Whether there is an entry of that name and it holds a bag.
  bool isBag(std::wstring_view name) const;
  /// Whether the entry at that place holds a bag.
  /// \throws coreException "PropertyBag: index is out of range".
  bool isBag(std::size_t index) const;

  /// Replaces the value of the first entry of that name and releases a bag in it. Appends an entry when there is none.
  void set(std::wstring_view name, wstr value);
  /// Appends an entry, even when there are others of that name.
  void add(std::wstring_view name, wstr value);
  /// Appends an entry that holds a bag: a deep copy of it, or its own data.
  void addBag(std::wstring_view name, const PropertyBag& bag, bool deepCopy);
  /// Removes every entry.
  void clear() { data_->entries.clear(); }
  /// Appends a deep copy of every entry of the source.
  void clone(const PropertyBag& source);

  /// Replaces all entries by those of an error. "ErrorCode" is the code in decimal. "ErrorText" is the trimmed text;
  /// when nothing is left of that, it is the system's message for the code, and missing when there is no message.
  void setError(std::uint32_t code, std::wstring_view text = {});
  /// Replaces all entries by an "ErrorText".
  void setErrorText(std::wstring_view text);
  /// Returns the "ErrorCode", or 0xFFFFFFFF when that is 0 or missing but there is an "ErrorText".
  std::uint32_t getErrorCode() const;
  /// Returns the "ErrorText". Without one it returns "ErrorCode %u (0x%x)" for a code other than 0, or else the
  /// default.
  wstr getErrorText(const wstr& defaultText = {}) const;

  /// Returns the bag as a text for the log. Each entry is a line: three blanks for each level, then name = "value"; the
  /// entries of a nested bag follow its name. A binary value shows as <BINARY>, and a NUL becomes a blank.
  /// \param separator  ends each line.
  /// \param mask  whether values with sensitive names (isSensitiveName) show as "*****".
  /// \param limit  the greatest length of the result in characters; the rest is left out.
  /// \throws coreException "OutOfMem" also when a framework string cannot hold the text (2^31 bytes of UTF-16). The
  ///         indentation makes the text of a deep bag grow with the square of its depth.
  std::wstring toString(std::wstring_view separator, bool mask, std::size_t limit = static_cast<std::size_t>(-1)) const;

  /// Replaces all entries by those of a text: quoted names with quoted values or braces, as in {"a":"1","b":{"z":"2"}}.
  /// This is not JSON. There are no escapes, numbers, literals and arrays; what is not a quote or a brace is skipped,
  /// and braces inside quotes count as structure. Takes time and memory that are linear in the text's length.
  /// \return false when the text is not of that form. The bag is then empty; without any double quote in the text it
  ///         stays as it was.
  bool parse(std::wstring text);

 private:
  explicit PropertyBag(CountedPtr<PropertyBagData> data) : data_(std::move(data)) {}
  const PropertyEntry& entryAt(std::size_t index) const;

  CountedPtr<PropertyBagData> data_;
};

}  // namespace CORE
