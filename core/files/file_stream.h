#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"

namespace CORE {

/// A binary input file stream, opened for reading and shared with every other reader, writer and remover. It keeps the
/// state rules of the standard's streams: a read that gets less than it asked for, and any failure, leave it failed,
/// and a failed or closed stream reads nothing. Used by one thread at a time; closes with the object.
class FileStream {
 public:
  /// Opens the file. False (and a closed stream) when it cannot be opened.
  bool open(const std::wstring& path);
  void close();

  bool isOpen() const { return static_cast<bool>(file_); }
  /// Open, and no read has failed or come out short.
  bool good() const { return isOpen() && !failed_; }
  /// Fills the buffer as far as the file goes; returns the number of bytes read.
  std::size_t read(std::span<std::byte> buffer);

 private:
  platform::KernelHandle file_;
  bool failed_ = false;
};

/// The size of a file in bytes.
/// \throws std::filesystem::filesystem_error for the operation "file_size" when it cannot be read.
std::uint64_t fileSize(const std::wstring& path);

}  // namespace CORE
