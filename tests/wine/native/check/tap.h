#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// What the checks of the Windows layer share: results in the Test Anything Protocol on the standard output.
namespace check {

/// One result, "ok 3 - registry: text" or "not ok 3 - ...". Gives `passed` back, for a check that others build on.
bool that(bool passed, std::string_view name);

/// As that(), with both values in a "# got ..., wanted ..." line when they differ.
bool equal(std::uint64_t got, std::uint64_t wanted, std::string_view name);
bool equal(const std::wstring& got, const std::wstring& wanted, std::string_view name);

/// A check that cannot run here, with the reason.
void skip(std::string_view name, std::string_view reason);

/// A line for the reader that is no result.
void note(const std::string& text);

/// Writes the plan. 0 when every check passed, otherwise 1.
int finish();

/// A fresh empty folder for the run, without a trailing separator; removed by removeScratchFolder.
const std::wstring& scratchFolder();
void removeScratchFolder();

// The services, one file each.
void clock(int expectedOffset);  ///< minutes from UTC to local time; kAnyOffset when the caller does not know
void digests();
void files();
void internet();
void objects();
void processes();
void registry();
void security();
void system();
void text();
void winHttp(const std::wstring& url);  ///< empty: no server to ask

inline constexpr int kAnyOffset = 100000;

/// The program as a child of its own: what it does for processes(). Exit code.
int runAsChild(const std::wstring& deed);

}  // namespace check
