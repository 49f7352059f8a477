#include "core/crash/crash_reporter.h"

#include <thread>

namespace CORE {
namespace {

constexpr std::size_t kReserveBytes = std::size_t{256} << 10;

}  // namespace

void CrashReporter::start() noexcept {
  try {
    const MutexLock lock(mutex_);
    if (!started_) {
      reserve_.reset(new std::byte[kReserveBytes]);
      std::thread([this] { run(); }).detach();
      started_ = true;
    }
  } catch (...) {
    // Without the thread a crash is not reported. The program itself works as before.
  }
}

void CrashReporter::run() noexcept {
  MutexLock lock(mutex_);
  for (;;) {
    changed_.wait(lock.native(), [this]() REQUIRES(mutex_) { return asked_ != done_; });
    const std::optional<platform::CrashInfo> info = info_;
    reserve_.reset();
    lock.unlock();
    work_(info ? &*info : nullptr);
    lock.lock();
    ++done_;
    changed_.notify_all();
  }
}

bool CrashReporter::report(const platform::CrashInfo* info) noexcept {
  try {
    const auto limit = std::chrono::steady_clock::now() + timeout_;
    MutexLock lock(mutex_);
    if (!started_ ||
        !changed_.wait_until(lock.native(), limit, [this]() REQUIRES(mutex_) { return asked_ == done_; })) {
      return false;
    }
    info_ = info != nullptr ? std::optional(*info) : std::nullopt;
    const std::uint64_t own = ++asked_;
    changed_.notify_all();
    return changed_.wait_until(lock.native(), limit, [this, own]() REQUIRES(mutex_) { return done_ >= own; });
  } catch (...) {
    return false;
  }
}

}  // namespace CORE
