#include "core/log/logger.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <system_error>
#include <utility>

#include "core/log/log_session.h"

namespace CORE {
namespace {

constexpr std::uint64_t kNoLevel = std::numeric_limits<std::uint64_t>::max();

/// The lowest level at which records are made.
constinit std::atomic<std::uint64_t> admittedFrom{kNoLevel};

constexpr std::chrono::milliseconds kCallTimeout{10'000};

/// Counts a log call as long as it lasts.
class Call {
 public:
  explicit Call(std::atomic<std::uint32_t>& calls) : calls_(calls) { calls_.fetch_add(1); }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call() { calls_.fetch_sub(1); }

 private:
  std::atomic<std::uint32_t>& calls_;
};

}  // namespace

bool logAdmits(std::uint32_t level) noexcept { return level >= admittedFrom.load(std::memory_order_relaxed); }

void logArguments(std::uint32_t level, std::wstring_view format, std::span<const FormatArgument> arguments) noexcept {
  corelogger::instance().write(level, {}, format, arguments);
}

corelogger& corelogger::instance() {
  static corelogger& logger = *new corelogger;
  return logger;
}

std::shared_ptr<LogSession> corelogger::session() {
  const MutexLock lock(mutex_);
  return session_;
}

/// Takes the session away from log calls and waits for the calls that still use it: at most ten seconds.
std::shared_ptr<LogSession> corelogger::takeSession() {
  std::shared_ptr<LogSession> taken;
  {
    const MutexLock lock(mutex_);
    taken = std::exchange(session_, nullptr);
    current_.store(nullptr);
  }
  for (auto left = kCallTimeout; calls_.load() != 0; --left) {
    if (left.count() == 0) {
      // A call hangs in the platform. The session must outlive it, so it is never destroyed.
      new std::shared_ptr<LogSession>(taken);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return taken;
}

void corelogger::start(std::wstring component, Writer writer) noexcept {
  stop();
  try {
    auto session = std::make_shared<LogSession>(LogSettings::read(), std::move(component));
    if (writer == Writer::kThread) {
      try {
        writer_ = std::thread([session] { session->run(); });
      } catch (const std::system_error&) {
        session->setCallerWrites();
      }
    } else {
      session->setCallerWrites();
    }
    const std::uint64_t lowest = session->admittedFrom();
    {
      const MutexLock lock(mutex_);
      session_ = std::move(session);
      current_.store(session_.get());
    }
    admittedFrom.store(lowest, std::memory_order_relaxed);
  } catch (...) {
    // Without memory for its settings there is no log; the program goes on.
  }
}

void corelogger::flush() noexcept {
  try {
    if (const auto current = session()) {
      current->flush();
    }
  } catch (...) {
    // The writer still writes what has not been flushed now.
  }
}

void corelogger::stop() noexcept {
  admittedFrom.store(kNoLevel, std::memory_order_relaxed);
  try {
    const std::shared_ptr<LogSession> ended = takeSession();
    if (!ended) {
      return;
    }
    const bool done = ended->flush();
    ended->close();
    if (done && writer_.joinable()) {
      writer_.join();
    } else if (writer_.joinable()) {
      writer_.detach();  // its share keeps the session and the files alive
      return;
    }
    ended->closeFiles();
  } catch (...) {
    // Only a lack of memory comes here: locks and joins do not fail on a thread that exists.
  }
}

void corelogger::submit(LogSession& session, std::uint32_t level, std::wstring_view label, std::wstring_view format,
                        std::span<const FormatArgument> arguments) {
  std::wstring message = formatArguments(format, arguments, kMaxMessageCharacters);
  const MessageFilter filter = filter_.load();
  if (filter != nullptr && level >= kInfo) {
    filter(level, message);
    message.resize(std::min(message.size(), kMaxMessageCharacters));
  }
  session.submit(makeLogRecord(level, label, message));
}

void corelogger::write(std::uint32_t level, std::wstring_view label, std::wstring_view format,
                       std::span<const FormatArgument> arguments) noexcept {
  try {
    // Counted before the session is read: takeSession() takes it away first and waits for the count to fall then, so a
    // call either finds no session or is waited for.
    const Call call(calls_);
    LogSession* const current = current_.load();
    if (current == nullptr) {
      return;
    }
    try {
      submit(*current, level, label, format, arguments);
    } catch (...) {
      submit(*current, kError, {}, L"System exception occurred while attempting to log a message", {});
    }
  } catch (...) {
    // Not even that could be queued: the record is lost.
  }
}

}  // namespace CORE
