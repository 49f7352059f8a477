#include "core/log/log.h"
#include "core/text/text.h"
#include "dct/dct_common.h"
#include "dct/query/capability_query.h"

namespace {

/// The dump argument of a selection text, which names its parts anywhere and in any case: "none" wins over everything.
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

/// The names that the script supports, as the request writes them; empty pieces are no names.
std::wstring featureArgument(const std::wstring& features) {
  std::wstring out;
  for (const std::wstring& name : CORE::splitText(features, L',')) {
    if (name.empty()) {
      continue;
    }
    if (!isSupportedFeature(name)) {
      CORE::log(CORE::kWarn, L"dct_common::getDCTFilter(): Unsupported feature '%s' found in request.", name);
      continue;
    }
    out += (out.empty() ? L" -c " : L",") + name;
  }
  return out;
}

}  // namespace

std::wstring dct_common::getDCTFilter(CORE::PropertyBag& request) {
  loadSupportedLists([this](CORE::PropertyBag& answer) { return getLogLevel(answer); });
  const wchar_t* const selection = request.getInt(L"Version", 1) == 1 ? L"DCTFilterType" : L"Dumps";
  const std::wstring dumps = dumpArgument(request.get(selection).str());
  std::wstring out = L"-s" + featureArgument(request.get(L"Features").str());
  if (!dumps.empty()) {
    out += L" -dumps " + dumps;
  }
  return out;
}
