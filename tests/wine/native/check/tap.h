#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// What the checks of the Windows layer share: results in the Test Anything Protocol on the standard output.
namespace check {

/// One result, "ok 3 - registry: text" or "not ok 3 - ...".
void that(bool passed, std::string_view name);

/// As that(), with both values in a "# got ..., wanted ..." line when they differ.
void equal(std::uint64_t got, std::uint64_t wanted, std::string_view name);

/// Writes the plan. 0 when every check passed, otherwise 1.
int finish();

void certificates();  ///< certificates, policies, CRLs
void crash();         ///< dumps, stacks and failures that are thrown on; works in the current folder
void digests();       ///< known answers
void storage();       ///< files, registry, security, the search for DLLs; works in the current folder

}  // namespace check
