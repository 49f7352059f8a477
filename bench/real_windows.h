#pragma once

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "bench/openssl_digests.h"
#include "bench/real_files.h"
#include "tests/sim/windows.h"

namespace bench {

/// The clock of the machine. Local time is UTC.
class RealClock : public sim::Clock {
 public:
  using sim::Clock::Clock;
  platform::FileTime GetSystemTimeAsFileTime() override {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return kUnixEpoch + static_cast<platform::FileTime>(now.tv_sec) * 10'000'000 +
           static_cast<platform::FileTime>(now.tv_nsec) / 100;
  }
  platform::Result<platform::FileTime> FileTimeToLocalFileTime(platform::FileTime utc) override {
    return {true, utc, 0};
  }
  platform::Result<platform::SystemTime> FileTimeToSystemTime(platform::FileTime time) override {
    using namespace std::chrono;
    const auto milliseconds = static_cast<std::int64_t>(time / 10'000) - static_cast<std::int64_t>(kUnixEpoch / 10'000);
    const sys_time<std::chrono::milliseconds> whole{std::chrono::milliseconds(milliseconds)};
    const std::chrono::sys_days day = floor<std::chrono::days>(whole);
    const year_month_day date = day;
    const hh_mm_ss clock{whole - day};
    const auto field = [](auto value) { return static_cast<std::uint16_t>(value); };
    return {true,
            {field(static_cast<int>(date.year())), field(static_cast<unsigned>(date.month())),
             field(weekday(day).c_encoding()), field(static_cast<unsigned>(date.day())), field(clock.hours().count()),
             field(clock.minutes().count()), field(clock.seconds().count()), field(clock.subseconds().count())},
            0};
  }
  std::uint32_t GetTickCount() override {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000);
  }

 private:
  static constexpr platform::FileTime kUnixEpoch = 116'444'736'000'000'000;
};

/// The thread ids of the machine.
class RealProcesses : public sim::Processes {
 public:
  using sim::Processes::Processes;
  std::uint32_t GetCurrentThreadId() override {
    thread_local const auto id = static_cast<std::uint32_t>(::gettid());
    return id;
  }
};

/// The heap of the C library.
class PlainHeap : public platform::Heap {
 public:
  platform::NativeHandle GetProcessHeap() override { return this; }
  void* HeapAlloc(platform::NativeHandle, std::size_t bytes) override { return std::malloc(bytes); }
  void HeapFree(platform::NativeHandle, void* memory) override { std::free(memory); }
};

/// Comparison and lower case of ASCII and Latin-1 letters, without the simulation's counting.
class PlainText : public sim::Text {
 public:
  using sim::Text::Text;
  int CompareStringW(std::uint32_t, std::uint32_t flags, std::wstring_view first, std::wstring_view second) override {
    const bool folds = (flags & platform::kNormIgnoreCase) != 0;
    const auto less = [folds](wchar_t a, wchar_t b) { return folds ? folded(a) < folded(b) : a < b; };
    if (std::lexicographical_compare(first.begin(), first.end(), second.begin(), second.end(), less)) {
      return 1;
    }
    return std::lexicographical_compare(second.begin(), second.end(), first.begin(), first.end(), less)
               ? 3
               : platform::kCstrEqual;
  }
  void CharLowerBuffW(std::span<wchar_t> text) override {
    for (wchar_t& character : text) {
      character = folded(character);
    }
  }

 private:
  static wchar_t folded(wchar_t character) {
    const auto code = static_cast<std::uint32_t>(character);
    const bool shifts = code - 'A' < 26 || (code - 0xC0 < 31 && code != 0xD7);
    return static_cast<wchar_t>(code + (shifts ? 32 : 0));
  }
};

/// A simulated Windows. The services that a measurement calls often are real or plain ones, without the simulation's
/// counting and locking. It is the installed platform as long as it exists.
class RealWindows {
 public:
  /// \param folder  where the real files are written.
  explicit RealWindows(const std::filesystem::path& folder) : files_(base_.kernel, folder) {
    platform::install(&platform_);
  }
  RealWindows(const RealWindows&) = delete;
  RealWindows& operator=(const RealWindows&) = delete;
  ~RealWindows() = default;

  sim::Registry& registry() { return base_.registry; }

 private:
  sim::Windows base_;
  RealClock clock_{base_.kernel};
  OpensslDigests digests_;
  PlainHeap heap_;
  RealFiles files_;
  RealObjects objects_{base_.kernel};
  RealProcesses processes_{base_.kernel};
  PlainText text_{base_.kernel};
  const platform::Platform platform_{
      base_.certificates, clock_,     base_.crash,    digests_,       files_,       heap_, base_.internet,
      objects_,           processes_, base_.registry, base_.security, base_.system, text_, base_.winHttp};
};

}  // namespace bench
