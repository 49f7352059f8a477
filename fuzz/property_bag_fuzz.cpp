#include <algorithm>

#include "core/convert.h"
#include "core/property_bag.h"
#include "core/text.h"
#include "fuzz/check.h"
#include "fuzz/input.h"

// The reader of bags: first any text, then one that is built together with the bag that must come of it.

namespace {

using CORE::PropertyBag;

void checkAnything(const std::wstring& text) {
  PropertyBag top;
  const bool parsed = top.parse(text);
  FUZZ_CHECK(parsed || top.count() == 0);
  std::size_t characters = 0;
  for (std::vector<PropertyBag> bags = {top}; !bags.empty();) {
    const PropertyBag bag = bags.back();
    bags.pop_back();
    for (std::size_t i = 0; i < bag.count(); ++i) {
      characters += bag.getName(i).length() + 3;  // a name takes its two quotes, and at least a "{" or a value more
      if (bag.isBag(i)) {
        bags.push_back(bag.getBag(i));
      }
    }
    FUZZ_CHECK(bag.count() == 0 || text.find(bag.get(bag.getName(0))) != text.npos);
  }
  FUZZ_CHECK(characters <= text.size());
}

/// A line "name=value" is an entry, "name" begins a nested bag with the entry that a bag needs, "" ends one.
void checkBuilt(const std::wstring& lines) {
  PropertyBag top;
  std::vector<PropertyBag> open = {top};
  std::wstring text = L"{";
  for (const std::wstring& line : CORE::splitText(lines, L'\n')) {
    const std::size_t equals = line.find(L'=');
    if (line.empty() && open.size() > 1) {
      open.pop_back();
      text += L"},";
    } else if (equals == line.npos) {
      PropertyBag nested;
      nested.add(L"of", line);
      open.back().addBag(line, nested, false);
      open.push_back(nested);
      text += L"\"" + line + L"\":{\"of\":\"" + line + L"\",";
    } else {
      open.back().add(line.substr(0, equals), line.substr(equals + 1));
      text += L"\"" + line.substr(0, equals) + L"\" : \"" + line.substr(equals + 1) + L"\"\n";
    }
  }
  PropertyBag read;
  FUZZ_CHECK(read.parse(text + std::wstring(open.size(), L'}')));
  FUZZ_CHECK(read.toString(L"|", false) == top.toString(L"|", false));
  FUZZ_CHECK(read.toString(L"|", true) == top.toString(L"|", true));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Platform platform;
  const std::wstring text = CORE::toWideLossy(fuzz::bytes(data, size));
  checkAnything(text);
  if (text.find_first_of(L"\"{}") == text.npos) {
    checkBuilt(text);
  }
  return 0;
}
