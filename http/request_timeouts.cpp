#include "http/request_timeouts.h"

#include <algorithm>
#include <limits>

#include "core/base/exception.h"

namespace {

constexpr std::uint32_t kMaxSeconds = 4294967;  // the most whole seconds whose milliseconds fit in 32 bits
constexpr std::array<double, 4> kShares = {0.2, 0.4, 0.2, 0.2};  // of the total: resolve, connect, send, receive

[[noreturn]] void throwNumericError() { throw CORE::coreException(L"Numeric error"); }

std::uint32_t toMilliseconds(std::uint32_t seconds) { return std::min(seconds, kMaxSeconds) * 1000U; }

}  // namespace

void RequestTimeouts::setTotalSeconds(std::uint32_t seconds) {
  total_ = toMilliseconds(seconds);
  explicit_ = false;
}

void RequestTimeouts::setSeconds(const Limits& seconds) {
  Limits milliseconds{};
  std::transform(seconds.begin(), seconds.end(), milliseconds.begin(), toMilliseconds);
  setMilliseconds(milliseconds);
}

void RequestTimeouts::setMilliseconds(const Limits& milliseconds) {
  std::uint64_t sum = 0;
  for (const std::uint32_t limit : milliseconds) {
    sum += limit;
  }
  if (sum > std::numeric_limits<std::uint32_t>::max()) {
    throwNumericError();
  }
  limits_ = milliseconds;
  total_ = static_cast<std::uint32_t>(sum);
  explicit_ = true;
}

std::array<int, 4> RequestTimeouts::forPlatform() const {
  std::array<int, 4> out{};
  for (std::size_t i = 0; i < out.size(); ++i) {
    if (explicit_) {
      out[i] = static_cast<int>(limits_[i]);
      continue;
    }
    out[i] = static_cast<int>(total_ * kShares[i]);
    if (out[i] < 0) {
      throwNumericError();
    }
  }
  return out;
}
