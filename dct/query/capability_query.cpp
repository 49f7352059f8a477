#include "dct/query/capability_query.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include "core/base/exception.h"
#include "core/text/convert.h"
#include "core/text/text.h"

namespace {

constexpr std::array kDefaultFeatures = {L"AgentCore",
                                         L"VirtualChannel",
                                         L"Flare",
                                         L"PCoIP",
                                         L"VDPService",
                                         L"CDR",
                                         L"Clipboard",
                                         L"DnD",
                                         L"DPISync",
                                         L"FA",
                                         L"PerfTracker",
                                         L"PrintRedir",
                                         L"PublishedApp",
                                         L"RTAV",
                                         L"ScannerRedirection",
                                         L"SerialPortRedirection",
                                         L"SmartCard",
                                         L"TSMMR",
                                         L"USB",
                                         L"Watermark"};
constexpr std::array kDefaultLogLevels = {L"INFO", L"DEBUG", L"TRACE", L"VERBOSE"};

struct ProcessWide {
  std::mutex loading;  ///< held by the one who asks the script
  std::mutex lock;     ///< guards `supported`; never held while the script runs
  SupportedLists supported;
};

ProcessWide& processWide() {
  static auto& lists = *new ProcessWide;  // never destroyed
  return lists;
}

}  // namespace

bool parseCapabilityOutput(const std::string& output, CORE::PropertyBag& bag) {
  std::wstring text;
  try {
    text = CORE::to_wstr(output, CORE::kUtf8);
  } catch (const CORE::coreException&) {
    return false;
  }
  return bag.parse(std::move(text));
}

SupportedLists readCapabilityAnswer(const CORE::PropertyBag& features) {
  SupportedLists out;
  for (std::size_t i = 0; i < features.count(); ++i) {
    const CORE::wstr name = features.getName(i);
    if (name.empty()) {
      continue;
    }
    out.features.push_back(name.str());
    if (!features.isBag(i)) {
      continue;
    }
    const CORE::wstr levels = features.getBag(i).get(L"supportedLogLevels");
    for (const std::wstring& level : CORE::splitText(levels, L',')) {
      if (!level.empty()) {
        out.logLevels.insert(CORE::lowered(level));
      }
    }
  }
  return out;
}

bool isSupportedFeature(std::wstring_view name) {
  ProcessWide& lists = processWide();
  const std::lock_guard lock(lists.lock);
  return std::ranges::any_of(lists.supported.features,
                             [name](const std::wstring& feature) { return CORE::equalText(feature, name, true); });
}

std::vector<std::wstring> supportedFeatures() {
  ProcessWide& lists = processWide();
  const std::lock_guard lock(lists.lock);
  return lists.supported.features;
}

std::set<std::wstring> supportedLogLevels() {
  ProcessWide& lists = processWide();
  const std::lock_guard lock(lists.lock);
  return lists.supported.logLevels;
}

void setSupportedLists(SupportedLists supported) {
  ProcessWide& lists = processWide();
  const std::lock_guard lock(lists.lock);
  lists.supported = std::move(supported);
}

void loadSupportedLists(const std::function<bool(CORE::PropertyBag&)>& askScript) {
  ProcessWide& lists = processWide();
  const std::lock_guard once(lists.loading);
  if (!supportedFeatures().empty()) {
    return;
  }
  SupportedLists answer;
  CORE::PropertyBag bag;
  if (askScript(bag) && bag.isBag(L"featureData")) {
    answer = readCapabilityAnswer(bag.getBag(L"featureData"));
  }
  if (answer.features.empty()) {  // also when no entry has a name: an empty list would be asked for again
    answer.features.assign(kDefaultFeatures.begin(), kDefaultFeatures.end());
    answer.logLevels = {kDefaultLogLevels.begin(), kDefaultLogLevels.end()};
  }
  setSupportedLists(std::move(answer));
}
