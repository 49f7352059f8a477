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

/// The program as a child of its own, which kernel() starts: the exit code.
int runAsChild(const std::wstring& deed);

void certificates();  ///< certificates, chains, CRLs
void crash();         ///< dumps, stacks and failures that are thrown on; works in the current folder
void kernel();        ///< objects, processes, security, heap
void storage();       ///< files, registry, the system's folders; works in the current folder
void values();        ///< clock, digests, text, URLs, proxies

}  // namespace check
