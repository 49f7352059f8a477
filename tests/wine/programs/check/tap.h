#pragma once

#include <string_view>

/// The checks of the Windows layer.
namespace check {

/// One result in the Test Anything Protocol, "ok 3 - registry: text" or "not ok 3 - ...".
void that(bool passed, std::string_view name);

void crash();  ///< failures that are thrown on, dumps, stacks; works in the current folder

}  // namespace check
