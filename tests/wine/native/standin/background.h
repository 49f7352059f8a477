#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace standin {

/// What a copy of the stand-in does behind the caller's back. Its command line begins with "--background".

/// Starts a copy that keeps this process's standard output open for that long.
void startPipeHolder(std::uint64_t milliseconds);

/// Starts a detached copy that waits for this process's end and `delay` milliseconds more, then deletes the bundle
/// ("vanish") or appends a mebibyte to it ("grow"). It tries for a minute, since the bundle may be open.
void startBundleSpoiler(const std::string& deed, std::uint64_t delay, const std::wstring& bundle);

/// The copy's own work; its outcome goes to the record. `arguments` are those behind "--background". Exit code.
int runInBackground(const std::vector<std::wstring>& arguments, const std::string& recordFile);

}  // namespace standin
