#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "core/base/unicode.h"
#include "core/text/text.h"
#include "http/win_http_request.h"
#include "tests/sim/log_capture.h"
#include "tests/sim/windows.h"

inline constexpr const char* kUrl = "https://host.example/c/b.zip?sv=1";
inline constexpr const char* kPath = "C:\\\xC3\xA9.zip";
inline constexpr const wchar_t* kWidePath = L"C:\\\u00E9.zip";
inline constexpr ContentType kZip = ContentType::kZip;
inline constexpr sim::Delivery kDeliveries[] = {sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kLate,
                                                sim::Delivery::kMixed};
inline constexpr sim::OnClose kOnClose[] = {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered};
inline constexpr std::uint64_t kMiB = 1u << 20;
using Errors = std::vector<std::wstring>;

/// A request whose hooks a test can script and whose protected parts it can read.
class TestRequest : public WinHttpRequest {
 public:
  static std::shared_ptr<TestRequest> create() { return std::make_shared<TestRequest>(CreateKey{}); }
  explicit TestRequest(CreateKey key) : WinHttpRequest(key) {}

  using WinHttpRequest::headers;

  void finalizeHeaders() override { onFinalize(*this); }
  bool preflightCertVerification() override {
    return !checksCertificates || WinHttpRequest::preflightCertVerification();
  }
  bool SendingRequest() override { return onSending() && (!checksCertificates || WinHttpRequest::SendingRequest()); }

  std::function<void(TestRequest&)> onFinalize = [](TestRequest&) {};
  std::function<bool()> onSending = [] { return true; };
  bool checksCertificates = false;  ///< the checks are the request's own
};

/// One simulated Windows with a log, a server that answers everything with `reply`, and a request. It ends idle,
/// without a handle of its own.
struct World {
  explicit World(sim::Delivery delivery = sim::Delivery::kWorker) {
    reply.body = "an answer";
    reply.headers = L"x-answer: caf\u00E9\r\n";
    reply.pieces = {4, 1, 4};
    windows.winHttp.delivery = delivery;
    windows.winHttp.onRequest([this](const sim::HttpExchange&) { return reply; });
    windows.winHttp.onHeaders([this](const sim::HttpExchange&) { return early ? std::optional(reply) : std::nullopt; });
    windows.files.write(kWidePath, "bundle");
  }
  ~World() {
    waitUntilIdle();
    request = nullptr;
    EXPECT_EQ(windows.openHandlesText(), before);
  }

  HttpCompletion completion() {
    return [this](HttpRequest* done, std::string response) {
      EXPECT_EQ(done, request.get());
      body = std::move(response);
      ++completions;
    };
  }
  bool get(const std::string& url = kUrl) { return request->getAsync(url, completion()); }
  bool putFile() { return request->putFileAsync(kZip, kUrl, kPath, completion()); }

  void waitUntilIdle() {
    windows.winHttp.release();
    windows.winHttp.waitUntilIdle();
  }
  sim::HttpExchange exchange() const {
    const auto all = windows.winHttp.requests();
    return all.empty() ? sim::HttpExchange{} : all.back();
  }
  Errors errors() const { return log.messages(CORE::kError); }
  /// Whether the log has records that contain these texts, separated by "|", in this order.
  bool logged(const wchar_t* texts) const {
    const auto wanted = CORE::splitText(texts, L'|');
    auto next = wanted.begin();
    for (const auto& line : log.lines()) {
      next += next != wanted.end() && line.message.find(*next) != std::wstring::npos ? 1 : 0;
    }
    return *texts == 0 || next == wanted.end();
  }

  sim::Windows windows;
  sim::LogCapture log{windows};
  std::string before = windows.openHandlesText();
  sim::HttpReply reply;
  bool early = false;  ///< the reply comes when the headers have arrived, before the body
  std::shared_ptr<TestRequest> request = TestRequest::create();
  std::atomic<int> completions{0};
  std::string body;  ///< of the response; the test reads it after waitUntilIdle()
};

/// Returns what a request has set in WinHTTP: verb, host, port, path; in hexadecimal the request's flags, those of its
/// security, whether it enables revocation, the callback's mask, the access type; proxy and bypass list; headers.
inline std::string settingsOf(const sim::HttpExchange& seen) {
  std::ostringstream out;
  out << CORE::toUtf8Lossy(seen.verb + L" " + seen.host) << ":" << seen.port << CORE::toUtf8Lossy(seen.path) << std::hex
      << " " << seen.requestFlags << " " << seen.securityFlags() << " " << seen.numberOptions.count(79) << " "
      << seen.callbackMask << " " << seen.accessType
      << CORE::toUtf8Lossy(seen.proxy + L"," + seen.bypass + L" " + seen.headersText);
  return out.str();
}
