#include "core/bag/property_bag.h"
#include "core/base/unicode.h"
#include "core/text/text.h"
#include "fuzz/fuzz.h"
#include "tests/sim/windows.h"

// Reads bags from any text, and from a text that is built together with the bag that it describes.

namespace {

using CORE::PropertyBag;

void checkAnything(const std::wstring& text) {
  PropertyBag top;
  FUZZ_CHECK(top.parse(text) || top.count() == 0);
  std::size_t characters = 0;
  for (std::vector<PropertyBag> bags = {top}; !bags.empty();) {
    const PropertyBag bag = bags.back();
    bags.pop_back();
    for (std::size_t i = 0; i < bag.count(); ++i) {
      characters += bag.getName(i).length() + 3;  // the text has two quotes for it, and at least a "{" or a value
      if (bag.isBag(i)) {
        bags.push_back(bag.getBag(i));
      }
    }
    FUZZ_CHECK(bag.count() == 0 || text.find(bag.get(bag.getName(0))) != text.npos);
  }
  FUZZ_CHECK(characters <= text.size());
}

/// Builds a text and the bag that it describes, and compares the bag that is read. A line "name=value" is an entry.
/// "name" begins a nested bag, with an entry in it because it needs one. An empty line ends the nested bag.
void checkBuilt(const std::wstring& lines) {
  PropertyBag top;
  std::vector<PropertyBag> open = {top};
  std::wstring text = L"{";
  for (const std::wstring& line : CORE::splitText(lines, L'\n')) {
    const auto [name, value] = fuzz::cut(line, L'=');
    if (line.empty() && open.size() > 1) {
      open.pop_back();
      text += L"},";
    } else if (name == line) {
      PropertyBag nested;
      nested.add(L"of", name);
      open.back().addBag(name, nested, false);
      open.push_back(nested);
      text += L"\"" + name + L"\":{\"of\":\"" + name + L"\",";
    } else {
      open.back().add(name, value);
      text += L"\"" + name + L"\" : \"" + value + L"\"\n";
    }
  }
  PropertyBag read;
  FUZZ_CHECK(read.parse(text + std::wstring(open.size(), L'}')));
  for (const bool mask : {false, true}) {
    FUZZ_CHECK(read.toString(L"|", mask) == top.toString(L"|", mask));
  }
}

}  // namespace

void fuzz::target(std::string_view input) {
  const sim::Windows windows;
  const std::wstring text = CORE::toWideLossy(input);
  checkAnything(text);
  if (text.find_first_of(L"\"{}") == text.npos) {
    checkBuilt(text);
  }
}
