#pragma once

#include <cstdint>
#include <filesystem>

namespace standin {

/// Writes a zip archive of exactly `size` bytes: one stored entry with bytes that do not compress, always the same
/// ones. Below the size of an entry it is an empty archive with a comment. \param size  22 (the smallest archive) to 4
/// GiB - 1 bytes. False when the size is out of range or the file cannot be written whole. Source: the archive format's
/// APPNOTE.TXT, sections 4.3.7, 4.3.12 and 4.3.16.
bool writeZip(const std::filesystem::path& path, std::uint64_t size);

}  // namespace standin
