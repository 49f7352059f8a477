#include "core/base/unicode.h"
#include "core/text/text.h"
#include "dct/query/capability_query.h"
#include "fuzz/fuzz.h"
#include "tests/sim/windows.h"

// The script's answer to the capability query. The input is read as an answer, which must never give more features than
// it has entries. An input without JSON characters is also read as a list of features, one on each line
// ("name=level,level"). The answer that is made from this list must give these features and levels again.

namespace {

/// Makes an answer from a list of features, reads it and compares.
void checkBuilt(const std::wstring& list) {
  SupportedLists wanted;
  std::wstring text = L"{\"featureData\":{";
  for (const std::wstring& line : CORE::splitText(list, L'\n')) {
    const auto [name, levels] = fuzz::cut(line, L'=');
    text += L"\"" + name + L"\":{\"supportedLogLevels\":\"" + levels + L"\"},";
    wanted.features.push_back(name);
    for (const std::wstring& level : levels.empty() ? std::vector<std::wstring>() : CORE::splitText(levels, L',')) {
      wanted.logLevels.insert(CORE::lowered(level));
    }
  }
  CORE::PropertyBag answer;
  FUZZ_CHECK(answer.parse(text + L"}}"));
  const SupportedLists lists = readCapabilityAnswer(answer.getBag(L"featureData"));
  FUZZ_CHECK(lists.features == wanted.features && lists.logLevels == wanted.logLevels);
}

}  // namespace

void fuzz::target(std::string_view input) {
  const sim::Windows windows;
  const std::wstring text = CORE::toWideLossy(input);
  CORE::PropertyBag answer;
  FUZZ_CHECK(!answer.parse(text) || readCapabilityAnswer(answer).features.size() <= answer.count());
  if (text.find_first_of(L"\"{}") == text.npos) {
    checkBuilt(text);
  }
}
