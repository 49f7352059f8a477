#include <algorithm>

#include "core/base/unicode.h"
#include "core/settings/legacy_policy.h"
#include "core/text/text.h"
#include "fuzz/fuzz.h"
#include "tests/sim/windows.h"

// The former maker's policy paths for any key path.

namespace {

const std::wstring kProduct = L"Software\\Calvera\\Meridon";
constexpr std::wstring_view kLegacy = L"Software\\Policies\\Vantix, Inc.\\";

void check(const std::wstring& path) {
  const std::wstring legacy = CORE::legacyPolicyPath(path);
  const std::wstring front = CORE::lowered(path.substr(0, kProduct.size()));
  FUZZ_CHECK(legacy == CORE::legacyPolicyPath(front + path.substr(front.size())));
  if (!legacy.empty()) {
    FUZZ_CHECK(front == CORE::lowered(kProduct));
    FUZZ_CHECK(legacy.starts_with(kLegacy) && legacy.size() > kLegacy.size());
    FUZZ_CHECK(CORE::legacyPolicyPath(legacy).empty());
    // The part below the component is kept as it is, and nothing but the component decides about the part before it.
    const std::size_t below = path.find(L'\\', std::min(path.size(), kProduct.size() + 1));
    FUZZ_CHECK(legacy.ends_with(below >= path.size() - 1 ? L"" : path.substr(below)));
  }
}

}  // namespace

void fuzz::target(std::string_view input) {
  const sim::Windows windows;
  const std::wstring text = CORE::toWideLossy(input);
  for (const std::wstring& front : {std::wstring(), kProduct, kProduct + L"\\"}) {
    check(front + text);
  }
}
