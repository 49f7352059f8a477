#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/base/mutex.h"
#include "core/files/file_stream.h"

/// The body of one request: bytes of its own, bytes that are lent to it, or a file; and how much of it has been sent.
///
/// A body in memory goes out with the send itself. A file goes out behind it, in chunks. The owner's thread sets the
/// body and prepares it. After the send only the notifications use it, which are handled one at a time. close() may
/// come from another thread meanwhile, so a lock guards the file.
class RequestBody {
 public:
  static constexpr std::size_t kChunkBytes = 4194304;
  static constexpr std::uint64_t kMaxBytes = std::numeric_limits<std::uint32_t>::max();

  /// Takes a copy of the bytes.
  void copy(std::span<const std::byte> bytes);
  /// Takes the bytes as they are when lend() has named their owner, and else a copy of them.
  void takeBuffer(std::span<const std::byte> bytes);
  /// Names the owner of the bytes that takeBuffer() is given next. It is kept for as long as this object lives, and so
  /// for as long as WinHTTP may read them.
  void lend(std::shared_ptr<const void> owner) { lender_ = std::move(owner); }
  /// Takes the content of a file, whose path is UTF-8.
  void useFile(const std::string& path) { filePath_ = path; }

  /// Opens the file, if there is one, and fixes the length.
  /// \return false when the file cannot be opened, or the body is longer than kMaxBytes; the reason is logged.
  /// \throws std::filesystem::filesystem_error when the file's size cannot be read, CORE::coreException for a path that
  ///         is not UTF-8.
  bool prepare() EXCLUDES(mutex_);

  /// Bytes of the whole body; 0 before prepare().
  std::uint32_t length() const { return length_; }
  /// The bytes that go out with the send itself.
  std::span<const std::byte> optionalData() const { return memory_.first(sent_); }
  bool isSent() const { return sent_ == length_; }

  /// Reads the next chunk of the file. The bytes stay valid until the next call.
  /// \return nothing when the file cannot be read, or is no longer as long as it was: the server would wait for the
  /// rest
  ///         of a shorter one, and would not get all of a longer one.
  std::optional<std::span<const std::byte>> nextChunk() EXCLUDES(mutex_);
  /// Counts bytes that WinHTTP has written.
  void addSent(std::uint32_t bytes);

  /// Closes the file. Any thread, any number of times.
  void close() noexcept EXCLUDES(mutex_);

 private:
  std::vector<std::byte> copy_;
  std::span<const std::byte> memory_;  ///< copy_, or the bytes that are lent
  std::shared_ptr<const void> lender_;
  std::string filePath_;  ///< empty: the body is in memory
  std::vector<std::byte> chunk_;
  std::uint32_t length_ = 0;
  std::uint32_t sent_ = 0;

  CORE::Mutex mutex_;
  CORE::FileStream file_ GUARDED_BY(mutex_);
};
