#include "http/response.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/winhttp.h"

bool Response::isSuccess() const {
  const std::uint32_t status = status_;
  return platform::kHttpStatusFirstSuccess <= status && status <= platform::kHttpStatusLastSuccess;
}

std::string Response::headers() const {
  const CORE::MutexLock lock(mutex_);
  return headers_;
}

void Response::setHeaders(std::string headers) {
  const CORE::MutexLock lock(mutex_);
  headers_ = std::move(headers);
}

std::string Response::body() const {
  const CORE::MutexLock lock(mutex_);
  return body_;
}

std::string Response::copyOrTakeBody() {
  const CORE::MutexLock lock(mutex_);
  try {
    return body_;
  } catch (const std::bad_alloc&) {
    return std::move(body_);
  }
}

std::span<std::byte> Response::roomFor(std::uint32_t bytes) {
  // The buffer only grows: between two reads nothing points into it. kept: it is one byte longer than the read.
  readBuffer_.resize(std::max(readBuffer_.size(), std::size_t{bytes} + 1));
  return std::span(readBuffer_).first(bytes);
}

void Response::appendRead(std::uint32_t bytes) {
  const std::size_t length = std::min<std::size_t>(bytes, readBuffer_.size());
  const CORE::MutexLock lock(mutex_);
  body_.append(reinterpret_cast<const char*>(readBuffer_.data()), length);
}
