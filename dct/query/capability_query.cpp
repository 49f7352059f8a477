#include "dct/query/capability_query.h"

#include <algorithm>
#include <array>
#include <utility>

#include "core/base/mutex.h"
#include "core/base/unicode.h"
#include "core/log/log.h"
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

/// What the process knows of the script, and its two locks. Who needs both takes `queryMutex` first.
struct ProcessWide {
  CORE::Mutex queryMutex;  ///< held while the script is asked, so that it is asked once; guards no member
  CORE::Mutex listsMutex;  ///< never held while the script runs
  SupportedLists supported GUARDED_BY(listsMutex);
};

ProcessWide& processWide() {
  static auto& data = *new ProcessWide;  // never destroyed: a worker may still use it when the process ends
  return data;
}

}  // namespace

bool parseCapabilityOutput(const std::string& output, CORE::PropertyBag& bag) {
  // PowerShell writes to a pipe in the code page of its console, so a name in another language may not be UTF-8.
  return bag.parse(CORE::toWideReplacing(output));
}

SupportedLists readCapabilityAnswer(const CORE::PropertyBag& features) {
  SupportedLists out;
  for (std::size_t i = 0; i < features.count(); ++i) {
    out.features.push_back(features.getName(i).str());
    const CORE::wstr levels = features.isBag(i) ? features.getBag(i).get(L"supportedLogLevels") : CORE::wstr();
    if (levels.empty()) {
      continue;
    }
    for (const std::wstring& level : CORE::splitText(levels, L',')) {
      out.logLevels.insert(CORE::lowered(level));
    }
  }
  return out;
}

bool isSupportedFeature(std::wstring_view name) {
  ProcessWide& process = processWide();
  const CORE::MutexLock lock(process.listsMutex);
  return std::ranges::any_of(process.supported.features,
                             [name](const std::wstring& feature) { return CORE::equalText(feature, name, true); });
}

std::vector<std::wstring> supportedFeatures() {
  ProcessWide& process = processWide();
  const CORE::MutexLock lock(process.listsMutex);
  return process.supported.features;
}

std::set<std::wstring> supportedLogLevels() {
  ProcessWide& process = processWide();
  const CORE::MutexLock lock(process.listsMutex);
  return process.supported.logLevels;
}

void setSupportedLists(SupportedLists supported) {
  ProcessWide& process = processWide();
  const CORE::MutexLock lock(process.listsMutex);
  process.supported = std::move(supported);
}

bool loadSupportedLists(const std::function<bool(CORE::PropertyBag&)>& askScript) {
  const CORE::MutexLock lock(processWide().queryMutex);
  if (!supportedFeatures().empty()) {
    return true;
  }
  SupportedLists answer;
  CORE::PropertyBag bag;
  if (askScript(bag)) {
    if (bag.isBag(L"featureData")) {
      answer = readCapabilityAnswer(bag.getBag(L"featureData"));
    }
    if (answer.features.empty()) {
      CORE::log(CORE::kWarn, L"loadSupportedLists(): The answer of the query has no featureData with a feature in it.");
    }
  }
  const bool usable = !answer.features.empty();
  if (!usable) {  // also when "featureData" is empty: with an empty list the script would be asked again
    answer.features.assign(kDefaultFeatures.begin(), kDefaultFeatures.end());
    answer.logLevels = {kDefaultLogLevels.begin(), kDefaultLogLevels.end()};
  }
  setSupportedLists(std::move(answer));
  return usable;
}
