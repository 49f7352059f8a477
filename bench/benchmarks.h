#pragma once

#include <filesystem>

namespace bench {

// Each prints its rows.
void benchLog(const std::filesystem::path& folder);
void benchMasking(const std::filesystem::path& folder);
void benchBags(const std::filesystem::path& folder);
void benchDigests(const std::filesystem::path& folder);

}  // namespace bench
