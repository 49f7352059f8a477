#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "core/convert.h"
#include "http/win_http_request.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

/// A request whose hooks a test can script and whose protected parts it can read.
class TestRequest : public WinHttpRequest {
 public:
  static std::shared_ptr<TestRequest> create() { return std::make_shared<TestRequest>(CreateKey{}); }
  explicit TestRequest(CreateKey key) : WinHttpRequest(key) {}
  ~TestRequest() override {
    if (onDestroyed) {
      onDestroyed();
    }
  }

  using WinHttpRequest::bodyLength;
  using WinHttpRequest::canonicalQuery;
  using WinHttpRequest::headers;
  using WinHttpRequest::hostName;
  using WinHttpRequest::urlPath;
  using WinHttpRequest::verb;

  void finalizeHeaders() override {
    if (onFinalize) {
      onFinalize(*this);
    }
  }
  bool preflightCertVerification() override { return preflight; }
  bool SendingRequest() override { return onSending ? onSending() : WinHttpRequest::SendingRequest(); }

  std::function<void(TestRequest&)> onFinalize;
  std::function<bool()> onSending;
  std::function<void()> onDestroyed;
  bool preflight = true;
};

/// Counts completions and keeps what the last one brought.
class Completions {
 public:
  HttpCompletion function() {
    return [this](HttpRequest* request, std::string body) {
      std::string headers;
      request->getResponseHeaders(headers);
      const std::lock_guard guard(mutex_);
      ++count_;
      status_ = request->getResponseCode();
      success_ = request->isSuccess();
      body_ = std::move(body);
      headers_ = std::move(headers);
    };
  }
  int count() const { return read(count_); }
  std::uint32_t status() const { return read(status_); }
  bool success() const { return read(success_); }
  std::string body() const { return read(body_); }
  std::string headers() const { return read(headers_); }

 private:
  template <class T>
  T read(const T& value) const {
    const std::lock_guard guard(mutex_);
    return value;
  }

  mutable std::mutex mutex_;
  int count_ = 0;
  std::uint32_t status_ = 0;
  bool success_ = false;
  std::string body_;
  std::string headers_;
};

/// A simulated Windows with a log. Every test ends idle, without a handle of its own and without misuse of one.
class HttpTest : public ::testing::Test {
 protected:
  static constexpr const char* kUrl = "https://host.example/c/b.zip?sv=1";
  static constexpr sim::Delivery kDeliveries[] = {sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kLate,
                                                  sim::Delivery::kMixed};

  /// One simulated Windows for one case of a table.
  struct World {
    sim::Windows windows;
    sim::LogCapture log{windows};
    std::string before = windows.openHandlesText();
    std::shared_ptr<TestRequest> request = TestRequest::create();
    Completions completions;

    ~World() {
      settle();
      request = nullptr;
      EXPECT_EQ(windows.openHandlesText(), before);
      EXPECT_EQ(windows.misuse(), std::vector<std::string>());
    }
    /// Lets everything that is under way come to its end.
    void settle() {
      windows.winHttp.release();
      windows.winHttp.waitUntilIdle();
    }
    sim::HttpExchange exchange() const {
      const auto all = windows.winHttp.requests();
      return all.empty() ? sim::HttpExchange{} : all.back();
    }
    /// The ERROR records so far.
    std::vector<std::wstring> errors() const {
      std::vector<std::wstring> out;
      for (const auto& line : log.lines()) {
        if (line.level == CORE::kError) {
          out.push_back(line.message);
        }
      }
      return out;
    }
  };
  using Errors = std::vector<std::wstring>;
};
