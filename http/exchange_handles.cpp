#include "http/exchange_handles.h"

#include <utility>

ExchangeHandles::Call::Call(Call&& other) noexcept
    : owner_(std::exchange(other.owner_, nullptr)), handle_(std::exchange(other.handle_, nullptr)) {}

ExchangeHandles::Call::~Call() {
  if (owner_ != nullptr) {
    owner_->endCall();
  }
}

void ExchangeHandles::Set::close() {
  request.reset();
  connection.reset();
  session.reset();
}

bool ExchangeHandles::markStarted() {
  const CORE::MutexLock lock(mutex_);
  return !std::exchange(started_, true);
}

bool ExchangeHandles::setSession(platform::InternetHandle session) { return set(&Set::session, std::move(session)); }

bool ExchangeHandles::setConnection(platform::InternetHandle connection) {
  return set(&Set::connection, std::move(connection));
}

bool ExchangeHandles::setRequest(platform::InternetHandle request) { return set(&Set::request, std::move(request)); }

ExchangeHandles::Call ExchangeHandles::useSession() { return use(&Set::session); }
ExchangeHandles::Call ExchangeHandles::useConnection() { return use(&Set::connection); }
ExchangeHandles::Call ExchangeHandles::useRequest() { return use(&Set::request); }

ExchangeHandles::Outcome ExchangeHandles::outcome() const {
  const CORE::MutexLock lock(mutex_);
  return outcome_;
}

bool ExchangeHandles::close(Outcome outcome, const std::function<void()>& onDecided) {
  Set closing;  // closed after the lock is gone: WinHTTP may call back inside the close
  {
    const CORE::MutexLock lock(mutex_);
    if (!started_ || outcome_ != Outcome::kOpen) {
      return false;
    }
    outcome_ = outcome;
    if (onDecided) {
      onDecided();
    }
    if (calls_ == 0) {  // else the last call in progress closes, in endCall()
      std::swap(closing, handles_);
    }
  }
  closing.close();
  return true;
}

bool ExchangeHandles::closeIncomplete(Outcome outcome) {
  Set closing;
  {
    const CORE::MutexLock lock(mutex_);
    if (outcome_ == Outcome::kOpen && handles_.session && handles_.connection && handles_.request) {
      return false;
    }
    if (started_ && outcome_ == Outcome::kOpen) {
      outcome_ = outcome;
      if (calls_ == 0) {
        std::swap(closing, handles_);
      }
    }
  }
  closing.close();
  return true;
}

void ExchangeHandles::closeNow(Outcome outcome) {
  Set closing;
  {
    const CORE::MutexLock lock(mutex_);
    if (outcome_ == Outcome::kOpen) {
      outcome_ = outcome;
    }
    std::swap(closing, handles_);
  }
  closing.close();
}

std::optional<ExchangeHandles::Outcome> ExchangeHandles::takeOutcome() {
  const CORE::MutexLock lock(mutex_);
  if (outcome_ == Outcome::kOpen || outcomeTaken_) {
    return std::nullopt;
  }
  outcomeTaken_ = true;
  return outcome_;
}

bool ExchangeHandles::set(platform::InternetHandle Set::*place, platform::InternetHandle handle) {
  // The handle that is left over, the earlier one or the one that came too late, closes after the lock is gone.
  const CORE::MutexLock lock(mutex_);
  if (outcome_ != Outcome::kOpen) {
    return false;
  }
  std::swap(handles_.*place, handle);
  return true;
}

ExchangeHandles::Call ExchangeHandles::use(platform::InternetHandle Set::*place) {
  const CORE::MutexLock lock(mutex_);
  if (outcome_ != Outcome::kOpen || !(handles_.*place)) {
    return Call(nullptr, nullptr);
  }
  ++calls_;
  return Call(this, (handles_.*place).get());
}

void ExchangeHandles::endCall() {
  Set closing;
  {
    const CORE::MutexLock lock(mutex_);
    --calls_;
    if (calls_ == 0 && outcome_ != Outcome::kOpen) {
      std::swap(closing, handles_);
    }
  }
  closing.close();
}
