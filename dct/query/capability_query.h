#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/bag/property_bag.h"

/// What the collection script supports, process-wide: empty until the capability query has run, then filled for good by
/// its answer or by the defaults. Every function takes the process-wide lock for its own duration; any thread.

/// The command that makes the script tell what it supports.
inline constexpr const wchar_t* kQueryCommand =
    L"powershell.exe -NoLogo -ExecutionPolicy RemoteSigned -File vdx-query.ps1 -l -o json";

/// Reads what that command wrote. False when it is not UTF-8 or not of the form that a bag parses.
bool parseCapabilityOutput(const std::string& output, CORE::PropertyBag& bag);

struct SupportedLists {
  std::vector<std::wstring> features;  ///< in the order of the answer
  std::set<std::wstring> logLevels;
};

/// Reads the feature list of the script's answer: an entry without a name is left out, one without readable levels is a
/// feature without levels. Log levels are lower-cased. Takes no lock.
SupportedLists readCapabilityAnswer(const CORE::PropertyBag& features);

/// Whether the script can collect for a feature; names are compared in any case, as wholes.
bool isSupportedFeature(std::wstring_view name);

/// A copy of the feature names, in the order of the answer.
std::vector<std::wstring> supportedFeatures();

/// A copy of the log levels: lower-case when they come from the script. kept: the defaults are upper-case.
std::set<std::wstring> supportedLogLevels();

/// Fills both lists unless there are features already: by the answer that `askScript` puts into a bag, or by the
/// defaults when it gives false or the answer names no feature. The script is asked by one thread at a time.
void loadSupportedLists(const std::function<bool(CORE::PropertyBag&)>& askScript);

/// Replaces both lists.
void setSupportedLists(SupportedLists supported);
