#include <algorithm>

#include "core/convert.h"
#include "core/text.h"
#include "dct/capability_query.h"
#include "fuzz/check.h"
#include "fuzz/input.h"

// The script's answer: first any text, then one that is built of features ("name=level,level", one a line), which must
// come back as they are.

namespace {

void checkAnything(const std::wstring& text) {
  CORE::PropertyBag answer;
  if (!answer.parse(text)) {
    return;
  }
  FUZZ_CHECK(readCapabilityAnswer(answer).features.size() <= answer.count());
}

void checkBuilt(const std::wstring& list) {
  SupportedLists wanted;
  std::wstring text = L"{\"featureData\":{";
  for (const std::wstring& line : CORE::splitText(list, L'\n')) {
    const std::size_t equals = std::min(line.find(L'='), line.size());
    const std::wstring name = line.substr(0, equals);
    const std::wstring levels = line.substr(std::min(equals + 1, line.size()));
    text += L"\"" + name + L"\":{\"supportedLogLevels\":\"" + levels + L"\"},";
    if (!name.empty()) {
      wanted.features.push_back(name);
      for (const std::wstring& level : CORE::splitText(levels, L',')) {
        wanted.logLevels.insert(CORE::lowered(level));
      }
    }
  }
  wanted.logLevels.erase(L"");
  CORE::PropertyBag answer;
  FUZZ_CHECK(answer.parse(text + L"}}"));
  const SupportedLists lists = readCapabilityAnswer(answer.getBag(L"featureData"));
  FUZZ_CHECK(lists.features == wanted.features && lists.logLevels == wanted.logLevels);
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
