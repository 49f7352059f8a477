#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "core/base/mutex.h"
#include "platform/handle.h"
#include "platform/winhttp.h"

/// The session, connection and request handle of one exchange, and the one place that decides how the exchange ends.
///
/// WinHTTP may call back inside the very call that asked, or on another thread before that call has returned. So no
/// lock is held across a call of WinHTTP. A caller borrows a handle as a Call, which counts while it lives; a close
/// that finds calls in progress is carried out by the last of them as it ends. So a handle is neither used after its
/// close nor mistaken for another object's. Any thread may use every operation.
class ExchangeHandles {
 public:
  /// How the exchange was closed; the first to close decides.
  enum class Outcome : std::uint8_t {
    kOpen,         ///< not closed
    kFinished,     ///< the exchange has ended, well or not: its completion is due
    kCancelled,    ///< given up: no completion
    kStartFailed,  ///< nothing was sent: no completion
  };

  /// One WinHTTP call in progress on one handle; empty when the handle does not exist or is being closed.
  class Call {
   public:
    Call(Call&& other) noexcept;
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    Call& operator=(Call&&) = delete;
    ~Call();

    platform::NativeHandle handle() const { return handle_; }
    explicit operator bool() const { return owner_ != nullptr; }

   private:
    friend class ExchangeHandles;
    Call(ExchangeHandles* owner, platform::NativeHandle handle) : owner_(owner), handle_(handle) {}

    ExchangeHandles* owner_;
    platform::NativeHandle handle_;
  };

  /// Marks the exchange as started.
  /// \return false when it was started before: handles serve one exchange.
  bool markStarted() EXCLUDES(mutex_);

  /// Takes a handle over, and closes an earlier one.
  /// \return false, with the handle closed, when the exchange is closed already.
  bool setSession(platform::InternetHandle session);
  bool setConnection(platform::InternetHandle connection);
  bool setRequest(platform::InternetHandle request);

  Call useSession();
  Call useConnection();
  Call useRequest();

  Outcome outcome() const EXCLUDES(mutex_);

  /// Closes request, connection and session, in this order: at once, or by the last call in progress.
  /// \param onDecided  runs under the lock once this call has decided, before anything is closed; it must not throw.
  /// \return true when this call decided; false, without effect, when the exchange was not started or is closed.
  bool close(Outcome outcome, const std::function<void()>& onDecided = {}) EXCLUDES(mutex_);

  /// As close(), but only while a handle is missing. One step, so that no send can begin between the question and the
  /// close.
  /// \return false, without effect, when all three handles exist and nobody has closed them.
  bool closeIncomplete(Outcome outcome) EXCLUDES(mutex_);

  /// As close(), but closes at once, whatever calls are in progress, and also what was decided before. For the
  /// sending-request notification only: data leaves when it returns, and the call that caused it has read its handle
  /// long before.
  void closeNow(Outcome outcome) EXCLUDES(mutex_);

  /// Hands out how a closed exchange has ended, once. The caller that gets it, and nobody else, does what it asks for:
  /// it calls the completion, or wakes the thread that cancelled.
  /// \return nothing while the exchange is open, and to every later caller.
  std::optional<Outcome> takeOutcome() EXCLUDES(mutex_);

 private:
  struct Set {
    platform::InternetHandle session;
    platform::InternetHandle connection;
    platform::InternetHandle request;

    void close();
  };

  bool set(platform::InternetHandle Set::*place, platform::InternetHandle handle) EXCLUDES(mutex_);
  Call use(platform::InternetHandle Set::*place) EXCLUDES(mutex_);
  void endCall() EXCLUDES(mutex_);

  mutable CORE::Mutex mutex_;
  Set handles_ GUARDED_BY(mutex_);
  std::uint32_t calls_ GUARDED_BY(mutex_) = 0;
  bool started_ GUARDED_BY(mutex_) = false;
  bool outcomeTaken_ GUARDED_BY(mutex_) = false;
  Outcome outcome_ GUARDED_BY(mutex_) = Outcome::kOpen;
};
