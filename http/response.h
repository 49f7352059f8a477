#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/base/mutex.h"

/// What the server answered to one request: status, headers, body. The notifications fill it, one at a time; any thread
/// may read it meanwhile.
class Response {
 public:
  /// 0 until the headers have arrived.
  std::uint32_t status() const { return status_; }
  bool isSuccess() const;
  void setStatus(std::uint32_t status) { status_ = status; }

  /// The raw headers in UTF-8, lines ended by CRLF.
  std::string headers() const EXCLUDES(mutex_);
  void setHeaders(std::string headers) EXCLUDES(mutex_);

  std::string body() const EXCLUDES(mutex_);
  /// Returns a copy of the body. Without memory for one it returns the body itself, and keeps nothing.
  std::string copyOrTakeBody() EXCLUDES(mutex_);

  /// Returns room for that many bytes of the body, which WinHTTP fills until the read has completed. One read at a
  /// time.
  /// \throws std::bad_alloc; the earlier room is unchanged then.
  std::span<std::byte> roomFor(std::uint32_t bytes);
  /// Appends the first bytes of that room to the body.
  void appendRead(std::uint32_t bytes) EXCLUDES(mutex_);

 private:
  std::atomic<std::uint32_t> status_{0};
  std::vector<std::byte> readBuffer_;  ///< the notifications', or WinHTTP's while it reads

  mutable CORE::Mutex mutex_;
  std::string headers_ GUARDED_BY(mutex_);
  std::string body_ GUARDED_BY(mutex_);
};
