#include "http/request_body.h"

#include <algorithm>
#include <array>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/convert.h"

// The texts name WinHttpRequest::performAsync, which prepares the body.

namespace {

bool fits(std::uint64_t size) {
  if (size > RequestBody::kMaxBytes) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Request data size is too large");
    return false;
  }
  return true;
}

}  // namespace

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
    if (!fits(memory_.size())) {
      return false;
    }
    length_ = static_cast<std::uint32_t>(memory_.size());
    sent_ = length_;  // it goes out with the send itself
    return true;
  }
  const std::wstring path = CORE::to_wstr(filePath_, CORE::kUtf8);
  platform::Status opened;
  {
    const CORE::MutexLock lock(mutex_);
    opened = file_.open(path);
  }
  const std::uint64_t size = CORE::fileSize(path);
  if (!opened) {
    CORE::log(CORE::kError, L"WinHttpRequest::performAsync(): Unable to open file %s: 0x%x %s", path, opened.error,
              CORE::systemErrorText(opened.error));
    return false;
  }
  if (!fits(size)) {
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
  std::array<std::byte, 1> more{};
  const bool isLast = chunk.size() == length_ - sent_;
  if (isLast && file_.read(more) != 0) {  // the file has grown
    return std::nullopt;
  }
  return chunk;
}

void RequestBody::addSent(std::uint32_t bytes) { sent_ += std::min(bytes, length_ - sent_); }

void RequestBody::close() noexcept {
  const CORE::MutexLock lock(mutex_);
  file_.close();
}
