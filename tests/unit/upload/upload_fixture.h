#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"
#include "upload/azure_blob_uploader.h"

namespace upload_test {

inline constexpr std::uint64_t kMiB = 1024 * 1024;
inline constexpr std::uint64_t kPutBlobLimit = 256 * kMiB;
inline constexpr std::uint64_t kBlock = 4 * kMiB;
inline constexpr const char* kUrl = "https://acct.blob.example/c/b.zip?sv=1&sig=x%2F";
inline constexpr const char* kPath = "C:\\b\xC3\xA4.zip";
inline const std::wstring kWidePath = L"C:\\b\u00E4.zip";

/// What the completion function was told, in order, on whichever thread.
class Outcomes {
 public:
  AzureBlobUploader::Completion function() {
    return [this](AzureBlobUploader* uploader, bool succeeded) {
      const std::lock_guard guard(mutex_);
      EXPECT_NE(uploader, nullptr);
      all_.push_back(succeeded);
      changed_.notify_all();
    };
  }
  std::vector<bool> all() const {
    const std::lock_guard guard(mutex_);
    return all_;
  }
  void clear() {
    const std::lock_guard guard(mutex_);
    all_.clear();
  }
  /// All of them, after the first has come (or a minute has passed).
  std::vector<bool> wait() {
    std::unique_lock guard(mutex_);
    changed_.wait_for(guard, std::chrono::minutes(1), [this] { return !all_.empty(); });
    return all_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<bool> all_;
};

struct Releaser {
  void operator()(AzureBlobUploader* uploader) const { uploader->release(); }
};
using Owner = std::unique_ptr<AzureBlobUploader, Releaser>;

/// The simulated clock with something happening at a look at the date, that is, while a request is being started.
/// In the place of the simulation's own while it lives; WinHTTP has to be idle at both ends.
class HookedClock : public platform::Clock {
 public:
  HookedClock() { platform::install(&replaced_); }
  ~HookedClock() override { platform::install(&real_); }

  /// Runs the hook at the n-th look from now on.
  void onLook(int n, std::function<void()> hook) {
    hook_ = std::move(hook);
    countdown_ = n;
  }

  platform::SystemTime GetSystemTime() override {
    if (--countdown_ == 0) {
      hook_();
    }
    return clock_.GetSystemTime();
  }
  platform::FileTime GetSystemTimeAsFileTime() override { return clock_.GetSystemTimeAsFileTime(); }
  platform::Result<platform::FileTime> FileTimeToLocalFileTime(platform::FileTime utc) override {
    return clock_.FileTimeToLocalFileTime(utc);
  }
  platform::Result<platform::SystemTime> FileTimeToSystemTime(platform::FileTime time) override {
    return clock_.FileTimeToSystemTime(time);
  }
  std::uint32_t GetTickCount() override { return clock_.GetTickCount(); }
  std::int64_t _time64() override { return clock_._time64(); }

 private:
  const platform::Platform& real_ = platform::current();
  platform::Clock& clock_ = real_.clock;
  const platform::Platform replaced_{*this,          real_.digests, real_.files,     real_.heap,
                                     real_.internet, real_.objects, real_.processes, real_.registry,
                                     real_.security, real_.system,  real_.text,      real_.winHttp};
  std::function<void()> hook_;
  std::atomic<int> countdown_{0};
};

/// One simulated Windows with a blob service that takes everything, and the checks that hold after every upload.
class UploadFixture : public ::testing::Test {
 protected:
  UploadFixture() {
    windows.winHttp.storeBodyUpTo = 0;
    serve({});
  }
  ~UploadFixture() override {
    windows.winHttp.waitUntilIdle();
    uploader.reset();
    EXPECT_EQ(windows.openHandlesText(), openAtTheEnd);
    EXPECT_EQ(windows.misuse(), std::vector<std::string>());
  }

  static sim::HttpReply created() {
    sim::HttpReply reply;
    reply.status = 201;
    return reply;
  }

  /// The service's answers: `special` for the request of that index, 201 for all others.
  void serve(std::map<std::size_t, sim::HttpReply> special) {
    windows.winHttp.onRequest([special = std::move(special)](const sim::HttpExchange& exchange) {
      const auto found = special.find(exchange.index);
      return found == special.end() ? created() : found->second;
    });
  }

  bool upload() { return uploader->uploadFile(kPath, kUrl, "", outcomes.function()); }

  /// Waits until nothing more can come and gives what came.
  std::vector<bool> settled() {
    windows.winHttp.waitUntilIdle();
    return outcomes.all();
  }

  std::size_t requestCount() const { return windows.winHttp.sentRequests().size(); }

  sim::Windows windows;
  sim::LogCapture log{windows};
  const std::string openBefore = windows.openHandlesText();
  std::string openAtTheEnd = openBefore;
  Outcomes outcomes;
  Owner uploader{new AzureBlobUploader};
};

inline const std::vector<bool> kSucceeded{true};
inline const std::vector<bool> kFailed{false};
inline const std::vector<bool> kNothing;

}  // namespace upload_test
