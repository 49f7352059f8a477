#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "platform/handle.h"
#include "platform/result.h"

namespace CORE {

/// A stream that reads the bytes of a file. Others may read, write and delete the file meanwhile. Its state follows the
/// rules of the standard's streams: a failure leaves the stream failed, and so does a read that does not fill its
/// buffer. A failed or closed stream reads nothing. The destructor closes it. One thread at a time uses it.
class FileStream {
 public:
  /// Opens a file, and closes the one before. A failure, whose error number it returns, leaves the stream closed.
  platform::Status open(const std::wstring& path);
  void close();

  bool isOpen() const { return static_cast<bool>(file_); }
  /// Whether the stream is open and every read so far has succeeded and filled its buffer.
  bool good() const { return isOpen() && !failed_; }
  /// Reads until the buffer is full or the file ends. Returns the number of bytes read.
  std::size_t read(std::span<std::byte> buffer);

 private:
  platform::KernelHandle file_;
  bool failed_ = false;
};

/// Returns the size of a file in bytes.
/// \throws std::filesystem::filesystem_error for the operation "file_size", with the path, when the size cannot be
/// read.
std::uint64_t fileSize(const std::wstring& path);

}  // namespace CORE
