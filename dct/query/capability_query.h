#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/bag/property_bag.h"

/// What the collection script supports, process-wide: empty until the capability query has run, then filled for good by
/// its answer or by the defaults. Every function takes the process-wide lock for its own duration; any thread.

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

/// Empties both lists, as at the start of the process. For tests only: the program asks once in its life.
void forgetSupportedListsForTests();
