#include <gtest/gtest.h>

#include <cstring>

#include "tests/sim/windows.h"

namespace {

using platform::current;
using namespace platform;  // the status names

/// Sends a body in one write, reads the answer's first piece and closes its request, driven by the notifications.
struct Client {
  explicit Client(std::uint32_t closing = kStatusReadComplete) : closeOn(closing) {
    auto& http = current().winHttp;
    session = std::move(http.WinHttpOpen(L"agent", 1, L"", L"", kWinHttpFlagAsync).value);
    http.WinHttpSetStatusCallback(session.get(), &Client::callback, 0x097F0C10);
    connection = std::move(http.WinHttpConnect(session.get(), L"host", 443).value);
    request = std::move(http.WinHttpOpenRequest(connection.get(), L"PUT", L"/", kWinHttpFlagSecure).value);
    raw = request.get();
    closed = std::move(current().objects.CreateEventW(true, false).value);
  }
  Status send() {
    return current().winHttp.WinHttpSendRequest(raw, L"Name: value", {}, 10, reinterpret_cast<std::uintptr_t>(this));
  }
  bool isClosed() { return current().objects.WaitForSingleObject(closed.get(), 100000).value == kWaitObject0; }

  static void callback(NativeHandle, std::uintptr_t context, std::uint32_t status, void* data, std::uint32_t length) {
    if (context != 0) {
      reinterpret_cast<Client*>(context)->on(status, data, length);
    }
  }
  void on(std::uint32_t status, void* data, std::uint32_t length) {
    seen.push_back(status);
    auto& http = current().winHttp;
    if (status == closeOn || status == kStatusRequestError) {
      request.reset();
    } else if (status == kStatusSendRequestComplete) {
      http.WinHttpWriteData(raw, std::as_bytes(std::span("0123456789", 10)));
    } else if (status == kStatusWriteComplete) {
      http.WinHttpReceiveResponse(raw);
    } else if (status == kStatusHeadersAvailable) {
      http.WinHttpQueryDataAvailable(raw);
    } else if (status == kStatusDataAvailable) {
      http.WinHttpReadData(raw, buffer);
    }
    if (status == kStatusRequestError) {
      std::memcpy(&error, data, length);
    } else if (status == kStatusHandleClosing) {
      current().objects.SetEvent(closed.get());
    }
  }

  const std::uint32_t closeOn;
  InternetHandle session, connection, request;
  NativeHandle raw = nullptr;
  KernelHandle closed;
  std::vector<std::byte> buffer{5};
  std::vector<std::uint32_t> seen;
  AsyncResult error{};
};

constexpr sim::Delivery kDeliveries[] = {sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kMixed};

TEST(SimWinHttp, ARequestMayBeClosedInsideAnyNotification) {
  const std::vector<std::uint32_t> all = {kStatusSendingRequest,   kStatusSendRequestComplete, kStatusWriteComplete,
                                          kStatusHeadersAvailable, kStatusDataAvailable,       kStatusReadComplete};
  for (const auto mode : kDeliveries) {
    for (std::size_t last = 0; last < all.size(); ++last) {
      sim::Windows windows;
      windows.winHttp.delivery = mode;
      windows.winHttp.onRequest([](const sim::HttpExchange& got) { return sim::HttpReply{201, {}, {}, got.body}; });
      Client client(all[last]);
      ASSERT_TRUE(client.send().ok);
      ASSERT_TRUE(client.isClosed());
      windows.winHttp.waitUntilIdle();
      std::vector<std::uint32_t> expected(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(last) + 1);
      expected.insert(expected.end(), last == 0 ? 1 : 0, kStatusRequestError);  // the send, cancelled
      expected.push_back(kStatusHandleClosing);
      EXPECT_EQ(client.seen, expected);
      EXPECT_EQ(windows.misuse(), std::vector<std::string>{});
    }
  }
}

TEST(SimWinHttp, ClosingCancelsWhatIsInFlight) {
  for (const auto mode : kDeliveries) {
    for (const auto rule : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
      sim::Windows windows;
      windows.winHttp.delivery = mode;
      windows.winHttp.onClose = rule;
      windows.winHttp.onRequest([](const sim::HttpExchange&) {
        sim::HttpReply reply;
        reply.hold = true;
        return reply;
      });
      Client client;
      client.send();
      windows.winHttp.waitUntilHeld();
      EXPECT_FALSE(current().winHttp.WinHttpReceiveResponse(client.raw).ok);
      EXPECT_EQ(windows.misuse().size(), 1u) << "a second call while one is in flight";
      client.request.reset();
      ASSERT_TRUE(client.isClosed());
      windows.winHttp.waitUntilIdle();
      EXPECT_EQ(client.error.error, rule == sim::OnClose::kCancelled ? kErrorWinHttpOperationCancelled : 0u);
      EXPECT_EQ(client.seen.back(), kStatusHandleClosing);
    }
  }
}

}  // namespace
