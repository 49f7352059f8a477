#include <algorithm>
#include <filesystem>

#include "core/base/exception.h"
#include "http/exchange_handles.h"
#include "http/notification_queue.h"
#include "http/request_body.h"
#include "http/request_target.h"
#include "http/request_text.h"
#include "http/response.h"
#include "http/trust/certificate_gate.h"
#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// The parts of a request, each by itself. What only a whole request shows is tested there.

namespace {

TEST(PartsTest, HandlesCloseAfterTheLastCallAndClosingComesLast) {
  World world;
  const auto closes = [&] { return world.windows.faults.callCount("WinHttpCloseHandle"); };
  const auto open = [&] { return world.windows.winHttp.WinHttpOpen(L"agent", 4, L"", L"", 1u << 28); };
  ExchangeHandles handles;
  EXPECT_TRUE(handles.markStarted() && handles.setSession(open().value));
  {
    const auto call = handles.useSession();
    EXPECT_TRUE(handles.close(ExchangeHandles::Outcome::kCancelled));
    EXPECT_FALSE(handles.useSession()) << "no new call on a handle that is being closed";
    EXPECT_EQ(closes(), 0U) << "still usable by the other call";
  }
  EXPECT_EQ(closes(), 1U);
  EXPECT_FALSE(handles.setSession(open().value)) << "it came too late";
  EXPECT_EQ(closes(), 2U);
  handles.closeNow(ExchangeHandles::Outcome::kFinished);
  EXPECT_EQ(handles.takeOutcome(), ExchangeHandles::Outcome::kCancelled) << "the first decides";
  EXPECT_EQ(handles.takeOutcome(), std::nullopt) << "handed out once";

  ExchangeHandles whole;
  EXPECT_TRUE(whole.markStarted() && whole.setSession(open().value) && whole.setConnection(open().value) &&
              whole.setRequest(open().value));
  EXPECT_FALSE(whole.closeIncomplete(ExchangeHandles::Outcome::kCancelled)) << "a send may be in progress";
  EXPECT_TRUE(whole.useRequest() && whole.close(ExchangeHandles::Outcome::kFinished));
  EXPECT_TRUE(whole.closeIncomplete(ExchangeHandles::Outcome::kCancelled)) << "nothing is left to wait for";

  NotificationQueue queue;
  Notification next;
  EXPECT_TRUE(queue.push({1, 10, 0}) && !queue.pushClosing()) << "somebody handles already";
  EXPECT_TRUE(queue.pop(next) && next.status == 1) << "before the closing";
  EXPECT_TRUE(queue.pop(next) && next.status == platform::kStatusHandleClosing);
}

TEST(PartsTest, BodiesCountWhatIsSentAndFilesMustKeepTheirLength) {
  World world;
  const std::string text = "borrowed";
  const auto bytes = std::as_bytes(std::span(text));
  RequestBody lent;
  lent.lend(std::make_shared<int>());
  lent.takeBuffer(bytes);
  EXPECT_TRUE(lent.prepare() && lent.isSent());
  EXPECT_EQ(lent.optionalData().data(), bytes.data()) << "not copied";
  RequestBody copied;
  copied.takeBuffer(bytes);
  EXPECT_TRUE(copied.prepare());
  EXPECT_NE(copied.optionalData().data(), bytes.data());
  EXPECT_EQ(copied.length(), text.size());

  RequestBody file;
  file.useFile(kPath);
  EXPECT_TRUE(file.prepare() && !file.isSent() && file.optionalData().empty());
  EXPECT_EQ(file.nextChunk()->size(), 6U);
  file.addSent(4);
  EXPECT_EQ(file.nextChunk(), std::nullopt) << "the file holds less than it did";
  file.addSent(100);
  EXPECT_TRUE(file.isSent()) << "WinHTTP cannot have sent more than there is";
  RequestBody grown;
  grown.useFile(kPath);
  EXPECT_TRUE(grown.prepare());
  world.windows.files.resize(kWidePath, 7);
  EXPECT_EQ(grown.nextChunk(), std::nullopt) << "one byte would be left out";
  RequestBody missing;
  missing.useFile("C:\\missing");
  try {
    missing.prepare();
    ADD_FAILURE() << "a file without a size";
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(error.path1(), "C:\\missing");
  }
}

TEST(PartsTest, TheResponseKeepsWhatWasReadAndTheTargetItsUrl) {
  World world;
  Response response;
  std::ranges::fill(response.roomFor(3), std::byte{'a'});
  response.appendRead(2);
  EXPECT_EQ(response.roomFor(1).size(), 1U);
  response.appendRead(100);
  EXPECT_EQ(response.body(), std::string("aaaaa\0", 6)) << "no more than there is room for";
  EXPECT_EQ(response.copyOrTakeBody(), response.body());

  RequestTarget target;
  EXPECT_FALSE(target.parse("ftp://h/p"));
  EXPECT_EQ(target.url() + L"|" + target.host(), L"ftp://h/p|") << "the URL alone";
  EXPECT_TRUE(target.parse("h/p?b=2&a&b=1#f"));
  EXPECT_TRUE(target.isHttps() && target.port() == 443);
  EXPECT_EQ(target.canonicalQuery({{"a", "0"}}), (QueryList{{"a", ""}, {"a", "0"}, {"b", "2"}, {"b", "1"}}));
}

TEST(PartsTest, TheGateTellsWinHttpWhatToWatch) {
  struct Row {
    const char* name;
    TrustSettings settings;
    bool viaProxy, watches, platformRevocation;
    std::uint32_t flags;
  };
  const Row rows[] = {
      {"nothing asked", {}, true, false, false, 0},
      {"revocation", {.checkRevocation = true}, false, false, true, 0},
      {"revocation through a proxy", {.checkRevocation = true}, true, true, false, 0},
      {"revocation, all ignored", {.ignoreAllErrors = true, .checkRevocation = true}, false, false, false, 0x3300},
      {"a pin", {.checkRevocation = true, .pins = {"AB"}}, false, true, false, 0x100},
      {"a name ignored", {.ignoreName = true, .checkRevocation = true}, false, false, true, 0x1000},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    CertificateGate gate;
    gate.settings() = row.settings;
    EXPECT_EQ(gate.watchesSending(row.viaProxy), row.watches);
    EXPECT_EQ(gate.usesPlatformRevocation(row.viaProxy), row.platformRevocation);
    EXPECT_EQ(gate.securityFlags(), row.flags);
    gate.actAsProbe();
    EXPECT_TRUE(gate.watchesSending(row.viaProxy));
  }
}

// Whatever else a target and its query may be made of: see the fuzz targets.
TEST(PartsTest, TargetsAndTimeouts) {
  const HttpMap parameters = {{"n\xC3\xA4me", "as given: %&="}};
  EXPECT_EQ(request_text::target(L"/b", L"", parameters), L"/b?n\u00E4me=as given: %&=&");
  EXPECT_EQ(request_text::target(L"/b", L"?sv=1&#part", {{"a", ""}}), L"/b?sv=1&a=&") << "no fragment";
  EXPECT_EQ(request_text::target(L"/b", L"#part?", {{"a", "1"}}), L"/b?a=1&");

  using Platform = std::array<int, 4>;
  RequestTimeouts timeouts;
  timeouts.setTotalSeconds(4294968);  // one more than there can be
  EXPECT_EQ(timeouts.total(), 4294967000U);
  EXPECT_EQ(timeouts.forPlatform(), (Platform{858993400, 1717986800, 858993400, 858993400}));
  timeouts.setMilliseconds({1, 0, 7, 4294967287U});  // the sum just fits
  EXPECT_THROW(timeouts.setMilliseconds({1, 0, 8, 4294967287U}), CORE::coreException);
  EXPECT_THROW(timeouts.setSeconds({4294967, 1, 0, 0}), CORE::coreException);
  EXPECT_EQ(timeouts.total(), 0xFFFFFFFFU) << "what does not fit changes nothing";
  EXPECT_EQ(timeouts.forPlatform(), (Platform{1, 0, 7, -9}));
}

}  // namespace
