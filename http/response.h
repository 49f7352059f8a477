#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "core/base/mutex.h"

/// What the server answered to one request: status, headers, body. The notifications fill it, one at a time; any thread
/// may read it meanwhile.
class Response {
 public:
  static constexpr std::size_t kMaxBodyBytes = std::size_t{100} << 20;  ///< as much as Windows takes of a CRL

  /// 0 until the headers have arrived.
  std::uint32_t status() const { return status_; }
  bool isSuccess() const;
  void setStatus(std::uint32_t status) { status_ = status; }

  /// Whether the body ended normally, which WinHTTP also reports of one that is shorter than the server said.
  bool bodyHasEnded() const { return bodyHasEnded_; }
  void endBody() { bodyHasEnded_ = true; }
  /// Returns the bytes of the body by the header "Content-Length"; nothing without one that is a number, and for a body
  /// in chunks, whose end WinHTTP checks itself.
  std::optional<std::uint64_t> announcedLength() const EXCLUDES(mutex_);

  /// The raw headers in UTF-8, lines ended by CRLF.
  std::string headers() const EXCLUDES(mutex_);
  void setHeaders(std::string headers) EXCLUDES(mutex_);

  std::string body() const EXCLUDES(mutex_);
  /// Returns a copy of the body. Without memory for one it returns the body itself, and keeps nothing.
  std::string copyOrTakeBody() EXCLUDES(mutex_);

  /// Whether that many more bytes of the body are within kMaxBodyBytes.
  bool canTake(std::uint32_t bytes) const EXCLUDES(mutex_);
  /// Returns room for that many bytes of the body, which WinHTTP fills until the read has completed. One read at a
  /// time.
  /// \throws std::bad_alloc; the earlier room is unchanged then.
  std::span<std::byte> roomFor(std::uint32_t bytes);
  /// Appends the first bytes of that room to the body.
  void appendRead(std::uint32_t bytes) EXCLUDES(mutex_);

 private:
  std::atomic<std::uint32_t> status_{0};
  std::atomic<bool> bodyHasEnded_{false};
  std::vector<std::byte> readBuffer_;  ///< the notifications', or WinHTTP's while it reads

  mutable CORE::Mutex mutex_;
  std::string headers_ GUARDED_BY(mutex_);
  std::string body_ GUARDED_BY(mutex_);
};
