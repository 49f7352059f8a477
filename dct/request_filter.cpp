#include "dct/request_filter.h"

#include "core/log/log.h"
#include "core/text/text.h"
#include "dct/query/capability_query.h"

namespace {

/// Returns the dumps that a selection text names. It is searched for "none", "prod" and "sys" in any case, also inside
/// of words; "none" wins over the other two.
std::wstring dumpArgument(const std::wstring& selection) {
  const std::wstring lowered = CORE::lowered(selection);
  const auto holds = [&lowered](const wchar_t* part) {
    return lowered.find(CORE::lowered(part)) != std::wstring::npos;
  };
  if (holds(L"none")) {
    return L"none";
  }
  std::wstring out = holds(L"prod") ? L"prod" : L"";
  if (holds(L"sys")) {
    out += out.empty() ? L"sys" : L",sys";
  }
  return out;
}

/// Returns " -c " with the names that the script supports, spelled as in the request; empty when there are none. Each
/// piece between commas is a name, an empty one too; an empty text has no names. The text names getDCTFilter, whose
/// result this is a part of.
std::wstring featureArgument(const std::wstring& features) {
  std::wstring out;
  if (features.empty()) {
    return out;
  }
  for (const std::wstring& name : CORE::splitText(features, L',')) {
    if (!isSupportedFeature(name)) {
      CORE::log(CORE::kWarn, L"dct_common::getDCTFilter(): Unsupported feature '%s' found in request.", name);
      continue;
    }
    out += (out.empty() ? L" -c " : L",") + name;
  }
  return out;
}

}  // namespace

std::wstring filterArguments(const CORE::PropertyBag& request) {
  const wchar_t* const selection = request.getInt(L"Version", 1) == 1 ? L"DCTFilterType" : L"Dumps";
  const std::wstring dumps = dumpArgument(request.get(selection).str());
  std::wstring out = L"-s" + featureArgument(request.get(L"Features").str());
  if (!dumps.empty()) {
    out += L" -dumps " + dumps;
  }
  return out;
}
