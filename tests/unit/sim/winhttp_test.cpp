#include <gtest/gtest.h>

#include <cstring>

#include "tests/sim/windows.h"

namespace {

using platform::current;
using namespace platform;  // the status names

/// Sends a body in one write, reads the answer's first piece and closes its request, driven by the notifications.
struct Client {
  explicit Client(std::uint32_t closing = kStatusReadComplete, const std::wstring& proxy = {}) : closeOn(closing) {
    auto& http = current().winHttp;
    session = std::move(http.WinHttpOpen(L"agent", proxy.empty() ? 1 : 3, proxy, L"", kWinHttpFlagAsync).value);
    http.WinHttpSetStatusCallback(session.get(), &Client::callback, 0x097F0C10);
    connection = std::move(http.WinHttpConnect(session.get(), L"host", 443).value);
    request = std::move(http.WinHttpOpenRequest(connection.get(), L"PUT", L"/", kWinHttpFlagSecure).value);
    raw = request.get();
    closed = std::move(current().objects.CreateEventW(true, false).value);
  }
  ~Client() {
    if (request && sent) {
      request.reset();
      isClosed();  // the context is this object
    }
  }
  Status send() {
    sent = true;
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
    if (status == kStatusSecureFailure) {
      std::memcpy(&bits, data, length);
    } else if (status == kStatusRequestError) {
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
  std::uint32_t bits = 0;
  bool sent = false;
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

TEST(SimWinHttp, AHandshakeFailsWithWhatIsNotForgiven) {
  const std::vector<sim::CertificateSpec> two = {{"leaf"}, {"root"}};
  const struct {
    const char* name;
    sim::ServerChain chain;
    std::uint32_t flags, feature, bits;
  } rows[] = {
      {"nothing wrong", {two}, 0, 1, 0},
      {"root, name and date", {two, false, false, 0x800B0101}, 0, 0, 0x38},
      {"all of it forgiven", {two, false, false, 0x800B0101}, kSecurityFlagIgnoreAll, 0, 0},
      {"only the root forgiven", {two, false, false}, kSecurityFlagIgnoreUnknownCa, 0, 0x10},
      {"usage", {two, true, true, 0x800B0110}, 0x3100, 0, 0x40},
      {"any other status cannot be forgiven", {two, true, true, 0x800B010C}, kSecurityFlagIgnoreAll, 0, 0x2},
      {"revoked, nobody asks", {two, true, true, 0, 0x4}, 0, 0, 0},
      {"revoked", {two, true, true, 0, 0x4}, kSecurityFlagIgnoreAll, kEnableSslRevocation, 0x4},
      {"no CRL to be had", {two, true, true, 0, 0x40}, 0, kEnableSslRevocation, 0x1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    sim::Windows windows;
    windows.winHttp.onHandshake([&](const sim::HttpExchange&) { return row.chain; });
    Client client;
    current().winHttp.WinHttpSetOption(client.raw, kOptionSecurityFlags, row.flags);
    current().winHttp.WinHttpSetOption(client.raw, kOptionEnableFeature, row.feature);
    ASSERT_TRUE(client.send().ok);
    ASSERT_TRUE(client.isClosed());
    EXPECT_EQ(client.bits, row.bits);
    EXPECT_EQ(client.error.error, row.bits != 0 ? kErrorWinHttpSecureFailure : 0);
    EXPECT_EQ(windows.winHttp.requests()[0].reached, row.bits == 0);
    if (row.bits != 0) {
      EXPECT_EQ(client.seen, std::vector({kStatusSecureFailure, kStatusRequestError, kStatusHandleClosing}));
    }
  }
}

TEST(SimWinHttp, NothingReachesTheServerOfARequestThatIsClosedEarly) {
  {
    sim::Windows windows;
    Client client(kStatusSendingRequest);
    client.send();
    ASSERT_TRUE(client.isClosed());
    EXPECT_FALSE(windows.winHttp.requests()[0].reached);
  }
  for (const auto mode : kDeliveries) {
    sim::Windows windows;
    windows.winHttp.delivery = mode;
    windows.winHttp.onHandshake([](const sim::HttpExchange&) {
      sim::ServerChain chain;
      chain.silent = true;
      return chain;
    });
    Client client;
    ASSERT_TRUE(client.send().ok);
    windows.winHttp.waitUntilHeld();
    client.request.reset();
    ASSERT_TRUE(client.isClosed());
    EXPECT_EQ(client.seen, std::vector({kStatusRequestError, kStatusHandleClosing}));
    EXPECT_FALSE(windows.winHttp.requests()[0].reached);
  }
}

TEST(SimWinHttp, AProxyWantsItsCredentialsBeforeTheHandshake) {
  for (const std::wstring password : {L"right", L"wrong"}) {
    const bool right = password == L"right";
    sim::Windows windows;
    windows.winHttp.proxyCredentials = {L"user", L"right"};
    Client client(0, L"http://proxy");
    current().winHttp.WinHttpSetOption(client.raw, kOptionProxyUsername, L"user");
    current().winHttp.WinHttpSetOption(client.raw, kOptionProxyPassword, password);
    client.send();
    windows.winHttp.waitUntilIdle();
    EXPECT_EQ(current().winHttp.WinHttpQueryHeaders(client.raw, kQueryStatusCode | kQueryFlagNumber).value,
              right ? 200u : 407u);
    EXPECT_EQ(windows.winHttp.requests()[0].reached, right);
    const CertificateHandle leaf(current().winHttp.WinHttpQueryOption(client.raw, kOptionServerCertContext).value);
    EXPECT_EQ(static_cast<bool>(leaf), right) << "the handshake was made";
  }
}

TEST(SimWinHttp, ShowsTheServersCertificatesOnceTheHandshakeIsDone) {
  sim::Windows windows;
  auto& certificates = current().certificates;
  windows.winHttp.onHandshake([](const sim::HttpExchange&) { return sim::ServerChain{{{"leaf"}, {"root"}}, false}; });
  Client client(0);
  const auto query = [&](std::uint32_t option) { return current().winHttp.WinHttpQueryOption(client.raw, option); };
  EXPECT_EQ(query(kOptionServerCertContext).error, kErrorWinHttpIncorrectHandleState);
  current().winHttp.WinHttpSetOption(client.raw, kOptionSecurityFlags, kSecurityFlagIgnoreUnknownCa);
  client.send();
  windows.winHttp.waitUntilIdle();
  const std::size_t before = windows.openHandles();
  CertificateHandle leaf(query(kOptionServerCertContext).value);
  ChainHandle chain(query(kOptionServerCertChainContext).value);
  ASSERT_EQ(windows.openHandles(), before + 2) << windows.openHandlesText();
  const ChainView view = certificates.chain(chain.get());
  ASSERT_EQ(view.certificates.size(), 2u);
  EXPECT_EQ(view.errorStatus, 0x20u);
  CertificateHandle copy = std::move(certificates.CertDuplicateCertificateContext(view.certificates[1]).value);
  certificates.CertFreeCertificateContext(view.certificates[0]);
  EXPECT_EQ(windows.misuse().size(), 1u) << "the chain's own";
  chain.reset();
  EXPECT_TRUE(certificates.certificate(view.certificates[0]).encoded.empty());
  EXPECT_EQ(windows.misuse().size(), 2u) << "gone with the chain";
  EXPECT_EQ(certificates.certificate(copy.get()).encoded.size(), 4u);
  EXPECT_EQ(windows.openHandles(), before + 2) << windows.openHandlesText();

  const auto store = certificates.CertOpenStore();
  const auto build = [&](NativeHandle from) {
    const auto built = certificates.CertGetCertificateChain(leaf.get(), from, {}, 0);
    return certificates.chain(built.value.get()).errorStatus;
  };
  EXPECT_EQ(build(store.value.get()), 0x10000u) << "a store without the root";
  certificates.CertAddCertificateContextToStore(store.value.get(), copy.get(), kStoreAddReplaceExisting);
  EXPECT_EQ(build(store.value.get()), 0x20u);
  EXPECT_EQ(build(certificates.certificate(leaf.get()).store), 0x20u);
  windows.winHttp.knowsChainOption = false;
  EXPECT_EQ(query(kOptionServerCertChainContext).error, kErrorWinHttpInvalidOption);
}

}  // namespace
