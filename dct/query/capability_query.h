#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/bag/property_bag.h"

// The capability query asks the collection script which features it can collect and which log levels they have. The
// answer fills two lists of the process: they are empty until the query has run, and are then filled for good, by the
// answer or by the defaults. Every function may be called on any thread.

/// The command line that makes the script write what it supports.
inline constexpr const wchar_t* kQueryCommand =
    L"powershell.exe -NoLogo -ExecutionPolicy RemoteSigned -File vdx-query.ps1 -l -o json";

/// Parses what that command wrote, in UTF-8, into a bag. A byte that is not part of valid UTF-8 becomes U+FFFD.
/// \return false when the text is not of the form that a bag parses.
bool parseCapabilityOutput(const std::string& output, CORE::PropertyBag& bag);

/// What the script supports.
struct SupportedLists {
  std::vector<std::wstring> features;  ///< in the order of the answer
  std::set<std::wstring> logLevels;    ///< of all features
};

/// Reads the feature list of the script's answer. Every entry is a feature, one without a name too; one without a text
/// of levels is a feature without levels. Each piece of that text between commas is a level, in lower case, an empty
/// piece too. Takes no lock.
SupportedLists readCapabilityAnswer(const CORE::PropertyBag& features);

/// Returns whether the script can collect for a feature. Whole names are compared, in any case.
bool isSupportedFeature(std::wstring_view name);

/// Returns a copy of the feature names, in the order of the answer.
std::vector<std::wstring> supportedFeatures();

/// Returns a copy of the log levels, in lower case when they come from the script. kept: the defaults are in upper
/// case, and no part of the program reads the list.
std::set<std::wstring> supportedLogLevels();

/// Fills both lists, unless there are features already. One thread at a time asks the script; the others wait for it.
/// \param askScript  puts the script's answer into a bag. When it returns false, or the answer names no feature, the
///                   lists are filled by the defaults. The latter case is logged at WARN.
/// \return false when the defaults had to stand in.
bool loadSupportedLists(const std::function<bool(CORE::PropertyBag&)>& askScript);

/// Replaces both lists; empty ones make loadSupportedLists() ask again.
void setSupportedLists(SupportedLists supported);
