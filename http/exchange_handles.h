#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

#include "platform/handle.h"
#include "platform/winhttp.h"

/// The session, connection and request handle of one exchange, and the one place that decides how the exchange ends.
///
/// WinHTTP may call back inside the very call that asked, or on a worker before that call has returned, so no lock is
/// ever held across a WinHTTP call. A caller takes a handle as a Call, which counts; a close that finds calls in
/// progress is carried out by the last of them as it leaves. So a handle is neither used after its close nor mistaken
/// for another object's. Any thread may use every operation.
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

  /// Marks the exchange as started. False when it was started before: handles serve one exchange.
  bool markStarted();

  /// Takes a handle over, closing an earlier one. False, and the handle is closed, when the exchange is closed already.
  bool setSession(platform::InternetHandle session);
  bool setConnection(platform::InternetHandle connection);
  bool setRequest(platform::InternetHandle request);

  Call useSession();
  Call useConnection();
  Call useRequest();

  /// True while all three handles exist and nobody has closed them.
  bool hasAllHandles() const;
  Outcome outcome() const;

  /// Closes request, connection and session, in this order: at once, or by the last call in progress.
  /// \param onDecided  runs under the lock once this call has decided, before anything is closed; it must not throw
  /// \returns true when this call decided; false, without effect, when the exchange was not started or is closed.
  bool close(Outcome outcome, const std::function<void()>& onDecided = {});

  /// As close, but carries any decided close out at once, whatever calls are in progress. For the sending-request
  /// notification only: data leaves when it returns, and the call that caused it has taken its handle up long before.
  void closeNow(Outcome outcome);

  /// Settles a closed exchange: the caller, and nobody else, does what its outcome asks for (calls the completion, or
  /// wakes the canceller). Nothing when the exchange is open or was settled before.
  std::optional<Outcome> takeOutcome();

 private:
  struct Set {
    platform::InternetHandle session;
    platform::InternetHandle connection;
    platform::InternetHandle request;

    void close();
  };

  bool set(platform::InternetHandle Set::*place, platform::InternetHandle handle);
  Call use(platform::InternetHandle Set::*place);
  void leave();

  mutable std::mutex mutex_;
  Set handles_;
  std::uint32_t calls_ = 0;
  bool started_ = false;
  bool outcomeTaken_ = false;
  Outcome outcome_ = Outcome::kOpen;
};
