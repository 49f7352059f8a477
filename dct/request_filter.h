#pragma once

#include <string>

#include "core/bag/property_bag.h"

/// Turns a collection request into the last arguments of the script's command line ("-s -c USB,Flare -dumps prod"):
/// - the features to collect for: those names in "Features", separated by commas, that the script supports. Every other
///   name is logged at WARN and left out;
/// - the dumps to gather: from "DCTFilterType", or from "Dumps" when "Version" is not 1.
///
/// Call it when the lists of what the script supports are loaded (query/capability_query.h).
std::wstring filterArguments(const CORE::PropertyBag& request);
