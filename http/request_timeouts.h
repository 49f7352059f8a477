#pragma once

#include <array>
#include <cstdint>

/// The time limits of one exchange, in milliseconds: either a total, whose shares are the four limits of WinHTTP, or
/// four limits, whose sum is the total. Used by one thread at a time.
class RequestTimeouts {
 public:
  /// The four limits in the order of WinHttpSetTimeouts: resolve, connect, send, receive.
  using Limits = std::array<std::uint32_t, 4>;

  /// Sets the total in seconds; values above 4294967 count as 4294967.
  void setTotalSeconds(std::uint32_t seconds);
  /// Sets the limits in seconds, each clamped like the total.
  /// \throws CORE::coreException when the sum in milliseconds does not fit in 32 bits; nothing is changed.
  void setSeconds(const Limits& seconds);
  /// As setSeconds, in milliseconds and without clamping.
  void setMilliseconds(const Limits& milliseconds);

  /// Milliseconds for the whole exchange.
  std::uint32_t total() const { return total_; }

  /// Returns what WinHttpSetTimeouts takes: the shares of the total, cut to whole milliseconds, or the limits as they
  /// were set. The platform's parameter is signed, so a limit above 2147483647 becomes negative.
  /// \throws CORE::coreException when a share is negative.
  std::array<int, 4> forPlatform() const;

 private:
  std::uint32_t total_ = 150000;
  bool explicit_ = false;  ///< limits_ count, not the shares
  Limits limits_{};
};
