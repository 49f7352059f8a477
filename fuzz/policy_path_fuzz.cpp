#include <algorithm>

#include "core/convert.h"
#include "core/legacy_policy.h"
#include "core/text.h"
#include "fuzz/check.h"
#include "fuzz/input.h"

// Key paths of the product and where the former maker's templates put them.

namespace {

constexpr std::wstring_view kProduct = L"Software\\Calvera\\Meridon";
constexpr std::wstring_view kLegacy = L"Software\\Policies\\Vantix, Inc.\\";

void check(const std::wstring& path) {
  const std::wstring legacy = CORE::legacyPolicyPath(path);
  FUZZ_CHECK(legacy == CORE::legacyPolicyPath(CORE::lowered(path.substr(0, kProduct.size())) +
                                              path.substr(std::min(path.size(), kProduct.size()))));
  if (legacy.empty()) {
    return;
  }
  FUZZ_CHECK(CORE::lowered(path).starts_with(CORE::lowered(kProduct)));
  FUZZ_CHECK(legacy.starts_with(kLegacy) && legacy.size() > kLegacy.size());
  FUZZ_CHECK(CORE::legacyPolicyPath(legacy).empty());
  // What stands below the component comes along as it is, and the component alone decides about the rest.
  const std::size_t below = path.find(L'\\', std::min(path.size(), kProduct.size() + 1));
  const std::wstring tail = below == path.npos || below + 1 == path.size() ? L"" : path.substr(below);
  FUZZ_CHECK(legacy.ends_with(tail));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Platform platform;
  const std::wstring input = CORE::toWideLossy(fuzz::bytes(data, size));
  check(input);
  check(std::wstring(kProduct) + input);
  check(std::wstring(kProduct) + L"\\" + input);
  return 0;
}
