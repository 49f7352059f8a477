#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>

#include "tests/sim/windows.h"

namespace {

using platform::current;
using namespace platform;  // the status names
using Statuses = std::vector<std::uint32_t>;

constexpr std::uint32_t kMask = 0x097F0C00;
constexpr std::uint32_t kMaskWithSending = 0x097F0C10;

/// A careful client of the platform: it sends a body in two writes (or with the send itself), reads the answer and
/// closes its request; everything else follows from the notifications.
struct Client {
  InternetHandle session;
  InternetHandle connection;
  InternetHandle request;
  NativeHandle raw = nullptr;
  std::string body = "0123456789";
  bool withSend = false;
  std::uint32_t closeOn = 0;  ///< closes the request in this notification
  std::size_t written = 0;
  std::vector<std::byte> buffer;
  std::string answer;
  AsyncResult error{};
  std::uint32_t secureBits = 0;
  static thread_local int depth;  ///< of nested notifications on this thread
  std::atomic<int> deepest{0};
  std::atomic<bool> closed{false};
  KernelHandle event;

  explicit Client(std::uint32_t mask = kMask) {
    session = std::move(current().winHttp.WinHttpOpen(L"agent", 3, L"proxy:8080", L"<local>", kWinHttpFlagAsync).value);
    current().winHttp.WinHttpSetTimeouts(session.get(), 1, 2, 3, 4);
    current().winHttp.WinHttpSetStatusCallback(session.get(), &Client::callback, mask);
    connection = std::move(current().winHttp.WinHttpConnect(session.get(), L"host", 443).value);
    request =
        std::move(current().winHttp.WinHttpOpenRequest(connection.get(), L"PUT", L"/a?b", kWinHttpFlagSecure).value);
    raw = request.get();
    event = std::move(current().objects.CreateEventW(true, false).value);
  }

  Status send() {
    const auto bytes = std::as_bytes(std::span(body));
    written = withSend ? body.size() : 0;
    return current().winHttp.WinHttpSendRequest(
        raw, L"Name: value\r\nx-ms-blob-type:BlockBlob", withSend ? bytes : bytes.first(0),
        static_cast<std::uint32_t>(body.size()), reinterpret_cast<std::uintptr_t>(this));
  }

  bool waitClosed() { return current().objects.WaitForSingleObject(event.get(), 1000000).value == kWaitObject0; }

  static void callback(NativeHandle, std::uintptr_t context, std::uint32_t status, void* information,
                       std::uint32_t length) {
    if (context != 0) {
      std::bit_cast<Client*>(context)->on(status, information, length);
    }
  }

  void on(std::uint32_t status, void* information, std::uint32_t length) {
    deepest = std::max(deepest.load(), ++depth);
    if (status == closeOn) {
      request.reset();
    } else {
      step(status, information, length);
    }
    --depth;
    if (status == kStatusHandleClosing) {
      closed = true;
      current().objects.SetEvent(event.get());
    }
  }

  void step(std::uint32_t status, void* information, std::uint32_t length) {
    const auto all = std::as_bytes(std::span(body));
    if (status == kStatusSendRequestComplete || status == kStatusWriteComplete) {
      if (written == body.size()) {
        current().winHttp.WinHttpReceiveResponse(raw);
      } else {
        const auto part = all.subspan(written, std::min<std::size_t>(6, all.size() - written));
        written += part.size();
        current().winHttp.WinHttpWriteData(raw, part);
      }
    } else if (status == kStatusHeadersAvailable || status == kStatusReadComplete) {
      answer.append(static_cast<const char*>(information), length);
      current().winHttp.WinHttpQueryDataAvailable(raw);
    } else if (status == kStatusDataAvailable) {
      std::uint32_t count = 0;
      std::memcpy(&count, information, sizeof(count));
      buffer.assign(count, std::byte{0});
      count == 0 ? request.reset() : void(current().winHttp.WinHttpReadData(raw, buffer));
    } else if (status == kStatusRequestError) {
      std::memcpy(&error, information, sizeof(error));
      request.reset();
    } else if (status == kStatusSecureFailure) {
      std::memcpy(&secureBits, information, sizeof(secureBits));
    }
  }
};

thread_local int Client::depth = 0;

sim::HttpReply created() {
  sim::HttpReply reply;
  reply.status = 201;
  reply.headers = L"x-ms-request-id: 1\r\n";
  reply.body = "hello world";
  reply.pieces = {5, 1};
  return reply;
}

TEST(SimWinHttp, AnExchangeRunsInEveryDeliveryMode) {
  for (const auto mode :
       {sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kLate, sim::Delivery::kMixed}) {
    for (std::uint32_t round = 0; round < 20; ++round) {
      sim::Windows windows;
      windows.winHttp.delivery = mode;
      windows.winHttp.seed = round;
      windows.winHttp.closingInline = round % 2 == 1;
      windows.winHttp.onRequest([](const sim::HttpExchange& seen) {
        EXPECT_TRUE(seen.bodyComplete);
        EXPECT_EQ(seen.body, "0123456789");
        return created();
      });
      {
        Client client;
        client.withSend = round % 4 == 3;
        ASSERT_TRUE(client.send().ok);
        if (mode == sim::Delivery::kLate) {
          windows.winHttp.waitUntilHeld();
          EXPECT_FALSE(client.closed);
          windows.winHttp.release();
        }
        ASSERT_TRUE(client.waitClosed());
        EXPECT_EQ(client.answer, "hello world");
        EXPECT_TRUE(mode != sim::Delivery::kInline || client.deepest >= 8) << client.deepest;
        EXPECT_TRUE(mode != sim::Delivery::kWorker || round % 2 == 1 || client.deepest == 1) << client.deepest;
        windows.winHttp.waitUntilIdle();
      }
      EXPECT_EQ(windows.openHandlesText(), "");
      EXPECT_EQ(windows.misuse(), std::vector<std::string>{});
      EXPECT_EQ(windows.winHttp.notifications(0).back(), kStatusHandleClosing);
    }
  }
}

TEST(SimWinHttp, TheExchangeIsRecorded) {
  sim::Windows windows;
  windows.winHttp.delivery = sim::Delivery::kInline;
  windows.winHttp.onRequest([](const sim::HttpExchange&) { return created(); });
  Client client;
  current().winHttp.WinHttpSetOption(client.raw, kOptionSecurityFlags, 0x1100);
  current().winHttp.WinHttpSetOption(client.raw, kOptionProxyUsername, L"user");
  ASSERT_TRUE(client.send().ok);
  ASSERT_EQ(windows.winHttp.sentRequests().size(), 1u);
  const auto seen = windows.winHttp.requests().at(0);
  EXPECT_EQ(seen.verb, L"PUT");
  EXPECT_EQ(seen.host, L"host");
  EXPECT_EQ(seen.port, 443);
  EXPECT_EQ(seen.path, L"/a?b");
  EXPECT_TRUE(seen.secure);
  EXPECT_EQ(seen.header("X-MS-Blob-Type"), "BlockBlob");
  EXPECT_EQ(seen.header("name"), "value");
  EXPECT_EQ(seen.proxy, L"proxy:8080");
  EXPECT_EQ(seen.accessType, 3u);
  EXPECT_EQ(seen.timeouts, (std::array<int, 4>{1, 2, 3, 4}));
  EXPECT_EQ(seen.securityFlags(), 0x1100u);
  EXPECT_EQ(seen.textOptions.at(kOptionProxyUsername), L"user");
  EXPECT_EQ(seen.writes, (std::vector<std::uint64_t>{6, 4}));
  EXPECT_EQ(seen.bodySha256, "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882");
  EXPECT_EQ(windows.winHttp.notifications(0),
            (Statuses{kStatusSendRequestComplete, kStatusWriteComplete, kStatusWriteComplete, kStatusHeadersAvailable,
                      kStatusDataAvailable, kStatusReadComplete, kStatusDataAvailable, kStatusReadComplete,
                      kStatusDataAvailable, kStatusReadComplete, kStatusDataAvailable, kStatusHandleClosing}));
}

TEST(SimWinHttp, HeadersComeOnceTheAnswerIsThere) {
  sim::Windows windows;
  windows.winHttp.delivery = sim::Delivery::kInline;
  windows.winHttp.onRequest([](const sim::HttpExchange&) { return created(); });
  Client client;
  client.withSend = true;
  constexpr std::uint32_t kStatusLevel = kQueryStatusCode | kQueryFlagNumber;
  EXPECT_EQ(current().winHttp.WinHttpQueryHeaders(client.raw, kStatusLevel).error, kErrorWinHttpIncorrectHandleState);
  client.closeOn = kStatusHandleClosing;
  client.send();
  Client other;
  other.withSend = true;
  windows.winHttp.onRequest([&](const sim::HttpExchange&) { return created(); });
  windows.winHttp.deliveryOf[1] = sim::Delivery::kLate;
  other.send();
  windows.winHttp.waitUntilHeld();
  EXPECT_EQ(current().winHttp.WinHttpReceiveResponse(other.raw).error, kErrorWinHttpIncorrectHandleState);
  EXPECT_EQ(windows.misuse().size(), 1u) << "a second call while one is in flight";
  windows.winHttp.release();
  EXPECT_TRUE(other.waitClosed());
}

TEST(SimWinHttp, FailuresComeAtTheStageAskedFor) {
  struct Row {
    sim::HttpFailure failure;
    bool early;
    std::uint64_t arrived;
    std::size_t answered;
  };
  using sim::HttpStage;
  const Row rows[] = {
      {{HttpStage::kSend, 12029}, true, 0, 0},      {{HttpStage::kSend, 12175, 0, false, 0x30}, true, 0, 0},
      {{HttpStage::kWrite, 12030, 8}, true, 8, 0},  {{HttpStage::kWrite, 12030, 6}, true, 6, 0},
      {{HttpStage::kReceive, 12002}, false, 10, 0}, {{HttpStage::kQueryData, 12152, 6}, false, 10, 6},
      {{HttpStage::kRead, 12030, 5}, false, 10, 5}};
  for (const Row& row : rows) {
    for (const auto mode : {sim::Delivery::kInline, sim::Delivery::kWorker}) {
      sim::Windows windows;
      windows.winHttp.delivery = mode;
      auto reply = created();
      reply.failure = row.failure;
      if (row.early) {
        windows.winHttp.onHeaders([&](const sim::HttpExchange&) { return reply; });
      } else {
        windows.winHttp.onRequest([&](const sim::HttpExchange&) { return reply; });
      }
      Client client;
      client.send();
      ASSERT_TRUE(client.waitClosed());
      windows.winHttp.waitUntilIdle();
      EXPECT_EQ(client.error.result, static_cast<std::uintptr_t>(row.failure.stage));
      EXPECT_EQ(client.error.error, row.failure.error);
      EXPECT_EQ(client.secureBits, row.failure.secureBits);
      EXPECT_EQ(client.answer.size(), row.answered);
      EXPECT_EQ(windows.winHttp.requests().at(0).bodySize, row.arrived);
    }
  }
}

TEST(SimWinHttp, ClosingCancelsWhatIsInFlight) {
  for (const auto mode : {sim::Delivery::kInline, sim::Delivery::kWorker, sim::Delivery::kMixed}) {
    for (const auto rule : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
      sim::Windows windows;
      windows.winHttp.delivery = mode;
      windows.winHttp.onClose = rule;
      auto reply = created();
      reply.failure = sim::HttpFailure{sim::HttpStage::kReceive, 0, 0, true};
      windows.winHttp.onRequest([&](const sim::HttpExchange&) { return reply; });
      Client client;
      client.send();
      windows.winHttp.waitUntilIdle();
      EXPECT_FALSE(client.closed) << "the server never answers";
      client.request.reset();
      ASSERT_TRUE(client.waitClosed());
      windows.winHttp.waitUntilIdle();
      const auto seen = windows.winHttp.notifications(0);
      EXPECT_EQ(client.error.error, rule == sim::OnClose::kCancelled ? kErrorWinHttpOperationCancelled : 0u);
      EXPECT_EQ(client.error.result, rule == sim::OnClose::kCancelled ? 1u : 0u);
      EXPECT_EQ(std::count(seen.begin(), seen.end(), kStatusHandleClosing), 1);
      EXPECT_EQ(seen.back(), kStatusHandleClosing);
    }
  }
}

TEST(SimWinHttp, ARequestMayBeClosedInsideAnyNotification) {
  for (const auto mode : {sim::Delivery::kInline, sim::Delivery::kWorker, sim::Delivery::kMixed}) {
    for (const std::uint32_t status : {kStatusSendingRequest, kStatusSendRequestComplete, kStatusWriteComplete,
                                       kStatusHeadersAvailable, kStatusDataAvailable, kStatusReadComplete}) {
      sim::Windows windows;
      windows.winHttp.delivery = mode;
      windows.winHttp.onRequest([](const sim::HttpExchange&) { return created(); });
      Client client(kMaskWithSending);
      client.closeOn = status;
      client.send();
      ASSERT_TRUE(client.waitClosed());
      windows.winHttp.waitUntilIdle();
      const auto seen = windows.winHttp.notifications(0);
      EXPECT_EQ(seen.front(), kStatusSendingRequest);
      EXPECT_EQ(seen.back(), kStatusHandleClosing);
      EXPECT_EQ(client.error.error, status == kStatusSendingRequest ? kErrorWinHttpOperationCancelled : 0u);
      EXPECT_EQ(windows.misuse(), std::vector<std::string>{});
    }
  }
}

std::vector<std::pair<std::uint32_t, std::uintptr_t>> heard;

void listen(NativeHandle, std::uintptr_t context, std::uint32_t status, void*, std::uint32_t) {
  heard.emplace_back(status, context);
}

TEST(SimWinHttp, OnlyASuccessfulSendBindsTheContext) {
  for (const bool binds : {false, true}) {
    sim::Windows windows;
    windows.winHttp.bindContextOfFailedSend = binds;
    windows.winHttp.delivery = sim::Delivery::kInline;
    heard.clear();
    auto session = current().winHttp.WinHttpOpen(L"a", 4, L"", L"", kWinHttpFlagAsync);
    current().winHttp.WinHttpSetStatusCallback(session.value.get(), &listen, kMask);
    auto connection = current().winHttp.WinHttpConnect(session.value.get(), L"h", 443);
    auto request = current().winHttp.WinHttpOpenRequest(connection.value.get(), L"GET", L"/", 0);
    windows.faults.failNth("WinHttpSendRequest", 1, 12007);
    EXPECT_EQ(current().winHttp.WinHttpSendRequest(request.value.get(), L"", {}, 0, 99).error, 12007u);
    request.value.reset();
    connection.value.reset();
    session.value.reset();
    const std::vector<std::pair<std::uint32_t, std::uintptr_t>> expected = {{kStatusHandleCreated, 0},
                                                                            {kStatusHandleCreated, 0},
                                                                            {kStatusHandleClosing, binds ? 99u : 0u},
                                                                            {kStatusHandleClosing, 0},
                                                                            {kStatusHandleClosing, 0}};
    EXPECT_EQ(heard, expected);
  }
}

TEST(SimWinHttp, HeldAnswersAndSilenceLetTheClockDecide) {
  sim::Windows windows;
  auto reply = created();
  reply.hold = true;
  windows.winHttp.onRequest([&](const sim::HttpExchange&) { return reply; });
  Client client;
  client.send();
  windows.winHttp.waitUntilHeld();
  const auto before = windows.clock.GetTickCount();
  EXPECT_FALSE(client.waitClosed());
  EXPECT_EQ(windows.clock.GetTickCount() - before, 1000000u);
  windows.winHttp.release();
  EXPECT_TRUE(client.waitClosed());
  EXPECT_EQ(client.answer, "hello world");

  windows.winHttp.delivery = sim::Delivery::kNever;
  Client mute;
  EXPECT_TRUE(mute.send().ok);
  mute.request.reset();
  EXPECT_FALSE(mute.waitClosed());
  EXPECT_EQ(windows.winHttp.notifications(1), Statuses{});
}

TEST(SimWinHttp, BigBodiesAreDigestedNotKept) {
  sim::Windows windows;
  windows.winHttp.delivery = sim::Delivery::kInline;
  windows.winHttp.storeBodyUpTo = 100;
  windows.winHttp.onRequest([](const sim::HttpExchange& seen) {
    EXPECT_EQ(seen.body, "");
    EXPECT_EQ(seen.bodySize, 1000000u);
    sim::HttpReply reply;
    reply.repeatedBody = 100000;
    return reply;
  });
  Client client;
  client.withSend = true;
  client.body.assign(1000000, 'a');
  client.send();
  EXPECT_TRUE(client.waitClosed());
  EXPECT_EQ(windows.winHttp.requests().at(0).bodySha256,
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
  EXPECT_EQ(client.answer, std::string(100000, 'x'));
}

}  // namespace
