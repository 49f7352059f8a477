#pragma once

#include <filesystem>

namespace bench {

// Each measures one subject and prints its rows of the table of results. Files are written below the folder.
void benchLog(const std::filesystem::path& folder);
void benchMasking(const std::filesystem::path& folder);
void benchBags(const std::filesystem::path& folder);
void benchDigests(const std::filesystem::path& folder);

}  // namespace bench
