#include "http/response.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/winhttp.h"

namespace {

char lowerAscii(char character) {
  return 'A' <= character && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// Returns the value of the first header of that name, which is in lower case, without the blanks before it.
std::optional<std::string_view> fieldOf(std::string_view headers, std::string_view name) {
  while (!headers.empty()) {
    const std::string_view line = headers.substr(0, headers.find("\r\n"));
    headers.remove_prefix(std::min(line.size() + 2, headers.size()));
    const bool isNamed = line.size() > name.size() && line[name.size()] == ':' &&
                         std::ranges::equal(line.substr(0, name.size()), name, {}, lowerAscii);
    if (isNamed) {
      return line.substr(std::min(line.find_first_not_of(" \t", name.size() + 1), line.size()));
    }
  }
  return std::nullopt;
}

}  // namespace

bool Response::isSuccess() const {
  const std::uint32_t status = status_;
  return platform::kHttpStatusFirstSuccess <= status && status <= platform::kHttpStatusLastSuccess;
}

std::optional<std::uint64_t> Response::announcedLength() const {
  const CORE::MutexLock lock(mutex_);
  if (fieldOf(headers_, "transfer-encoding")) {
    return std::nullopt;
  }
  const std::string_view text = fieldOf(headers_, "content-length").value_or(std::string_view());
  std::uint64_t length = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  return error == std::errc() ? std::optional(length) : std::nullopt;
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

bool Response::canTake(std::uint32_t bytes) const {
  const CORE::MutexLock lock(mutex_);
  return bytes <= kMaxBodyBytes - body_.size();
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
