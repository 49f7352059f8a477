#pragma once

#include <string_view>

/// The checks of the Windows layer.
namespace check {

/// Prints one result in the Test Anything Protocol: "ok 3 - registry: text" or "not ok 3 - registry: text".
void that(bool passed, std::string_view name);

/// Checks the crash service: failures that become exceptions, dumps and stacks. Works in the current folder.
void crash();

}  // namespace check
