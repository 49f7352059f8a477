#include "http/request_body.h"

#include <algorithm>

#include "core/text/convert.h"

void RequestBody::copy(std::span<const std::byte> bytes) {
  copy_.assign(bytes.begin(), bytes.end());
  memory_ = copy_;
}

void RequestBody::takeBuffer(std::span<const std::byte> bytes) {
  if (lender_) {
    memory_ = bytes;
  } else {
    copy(bytes);
  }
}

bool RequestBody::prepare() {
  if (filePath_.empty()) {
    if (memory_.size() > kMaxBytes) {
      return false;
    }
    length_ = static_cast<std::uint32_t>(memory_.size());
    sent_ = length_;  // it goes out with the send itself
    return true;
  }
  const std::wstring path = CORE::to_wstr(filePath_, CORE::kUtf8);
  {
    const CORE::MutexLock lock(mutex_);
    file_.open(path);
  }
  const std::uint64_t size = CORE::fileSize(path);
  if (size > kMaxBytes) {
    return false;
  }
  length_ = static_cast<std::uint32_t>(size);
  chunk_.resize(std::min<std::size_t>(kChunkBytes, length_));
  return true;
}

std::optional<std::span<const std::byte>> RequestBody::nextChunk() {
  const CORE::MutexLock lock(mutex_);
  const auto chunk = std::span(chunk_).first(std::min<std::size_t>(chunk_.size(), length_ - sent_));
  if (!file_.good() || file_.read(chunk) != chunk.size()) {
    return std::nullopt;
  }
  return chunk;
}

void RequestBody::addSent(std::uint32_t bytes) { sent_ += std::min(bytes, length_ - sent_); }

void RequestBody::close() noexcept {
  const CORE::MutexLock lock(mutex_);
  file_.close();
}
