#include "platform/winhttp.h"
#include "tests/unit/http/http_test.h"

// Failures after the send: each ends the exchange with one completion, or with none when the start failed.

namespace {

constexpr std::uint64_t kMiB = 1u << 20;

class FailureTest : public HttpTest {
 protected:
  static sim::HttpReply answer() {
    sim::HttpReply reply;
    reply.body = "body";
    return reply;
  }
  static void prepare(World& world, sim::Delivery delivery, std::uint64_t size = 5 * kMiB) {
    world.windows.winHttp.delivery = delivery;
    world.windows.winHttp.onRequest([](const sim::HttpExchange&) { return answer(); });
    world.windows.files.write(L"C:\\b.zip", std::string(size, 'b'));
  }
  static bool upload(World& world) {
    return world.request->putFileAsync(ContentType::kZip, kUrl, "C:\\b.zip", world.completions.function());
  }
};

TEST_F(FailureTest, EachStepThatFails) {
  struct Row {
    const char* call;
    std::size_t nth;
    Errors errors;
  };
  const Row rows[] = {
      {"ReadFile", 1, {L"WinHttpRequest::UploadData(): File stream is invalid"}},
      {"ReadFile", 2, {L"WinHttpRequest::UploadData(): File stream is invalid"}},
      {"WinHttpWriteData", 1, {L"WinHttpRequest::UploadData(): WinHttpWritedata failed: 0x5 Message 5."}},
      {"WinHttpWriteData", 2, {L"WinHttpRequest::UploadData(): WinHttpWritedata failed: 0x5 Message 5."}},
      {"WinHttpReceiveResponse",
       1,
       {L"WinHttpRequest::ReceiveResponse(): WinHttpReceiveResponse failed: 0x5 Message 5."}},
      {"WinHttpQueryHeaders", 2, {L"WinHttpRequest::CheckHeaders(): Unable to get all headers. Error: Message 5."}},
      {"WinHttpQueryHeaders", 3, {L"WinHttpRequest::CheckHeaders(): Unable to get all headers. Error: Message 5."}},
      {"WinHttpQueryDataAvailable",
       1,
       {L"WinHttpRequest::QueryData(): Unable to query data available, error 0x5 Message 5."}},
      {"WinHttpQueryDataAvailable",
       2,
       {L"WinHttpRequest::QueryData(): Unable to query data available, error 0x5 Message 5."}},
      {"WinHttpReadData", 1, {L"WinHttpRequest::DataAvailable(): Failed to read data response, error 0x5 Message 5."}},
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      World world;
      prepare(world, delivery);
      world.windows.faults.failNth(row.call, row.nth, platform::kErrorAccessDenied);
      EXPECT_TRUE(upload(world));
      world.settle();
      EXPECT_EQ(world.completions.count(), 1) << row.call;
      EXPECT_EQ(world.errors(), row.errors) << row.call << row.nth;
      EXPECT_EQ(world.log.count(L"Request did not complete"), 0U) << "completed, though not well";
    }
  }
}

TEST_F(FailureTest, StatusThatCannotBeReadGoesOn) {
  World world;
  prepare(world, sim::Delivery::kWorker);
  world.windows.faults.failNth("WinHttpQueryHeaders", 1, 5);
  EXPECT_TRUE(upload(world));
  world.settle();
  EXPECT_EQ(world.errors(),
            Errors({L"WinHttpRequest::CheckHeaders(): Unable to get status code. Error: 0x5 Message 5."}));
  EXPECT_EQ(world.completions.body(), "body");
  EXPECT_FALSE(world.completions.success());
}

TEST_F(FailureTest, RequestErrorsNameTheirCall) {
  struct Row {
    sim::HttpStage stage;
    const wchar_t* name;
  };
  const Row rows[] = {
      {sim::HttpStage::kReceive, L"WinHttpReceiveResponse"}, {sim::HttpStage::kQueryData, L"WinHttpQueryDataAvailable"},
      {sim::HttpStage::kRead, L"WinHttpReadData"},           {sim::HttpStage::kWrite, L"WinHttpWriteData"},
      {sim::HttpStage::kSend, L"WinHttpSendRequest"},
  };
  for (const sim::Delivery delivery : kDeliveries) {
    for (const Row& row : rows) {
      for (const bool probe : {false, true}) {
        World world;
        prepare(world, delivery);
        world.windows.winHttp.onHeaders([&](const sim::HttpExchange&) {
          auto reply = answer();
          reply.failure = sim::HttpFailure{row.stage, 12030};
          return std::optional(reply);
        });
        if (probe) {
          world.request->makeProbe();
        }
        EXPECT_TRUE(upload(world));
        world.settle();
        EXPECT_EQ(world.completions.count(), 1) << static_cast<int>(row.stage);
        EXPECT_TRUE(world.log.has(probe ? CORE::kTrace : CORE::kError,
                                  std::wstring(L"WinHttpRequest::RequestCallback(): ") + row.name +
                                      L" failed for url https://host.example/c/b.zip?sv=1: 0x2efe (WinHTTP message "
                                      L"12030.)"))
            << world.log.text();
      }
    }
  }
}

TEST_F(FailureTest, ExceptionInAStepEndsTheExchange) {
  World world;
  prepare(world, sim::Delivery::kWorker);
  world.request->makeProbe();
  world.request->onSending = []() -> bool { throw CORE::coreException(L"out of a step"); };
  EXPECT_TRUE(upload(world));
  world.settle();
  EXPECT_EQ(world.completions.count(), 1);
  EXPECT_TRUE(
      world.log.has(CORE::kError, L"WinHttpRequest::RequestCallback(): Exception in a callback: out of a step"));
}

TEST_F(FailureTest, NothingLeavesWhenSendingIsRefused) {
  for (const sim::Delivery delivery : kDeliveries) {
    for (const bool fromFile : {false, true}) {
      World world;
      prepare(world, delivery);
      world.request->makeProbe();
      int asked = 0;
      world.request->onSending = [&] {
        ++asked;
        return false;
      };
      const bool started =
          fromFile ? upload(world)
                   : world.request->putStringAsync(ContentType::kZip, kUrl, "secret", world.completions.function());
      world.settle();
      EXPECT_EQ(asked, 1);
      EXPECT_EQ(world.completions.count(), started ? 1 : 0);
      EXPECT_EQ(world.exchange().bodySize, 0U);
      EXPECT_TRUE(world.exchange().closed);
    }
  }
}

TEST_F(FailureTest, EachCallOfAWholeExchangeFailingInTurn) {
  for (const sim::Delivery delivery : kDeliveries) {
    for (const sim::OnClose onClose : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
      std::size_t calls = 1;
      for (std::size_t k = 1; k <= calls; ++k) {
        World world;
        prepare(world, delivery, 100);
        world.windows.winHttp.onClose = onClose;
        const std::size_t first = world.windows.faults.calls().size();
        world.windows.faults.failCall(first + k, platform::kErrorNotEnoughMemory);
        bool started = false;
        try {
          started = upload(world);
        } catch (const std::exception&) {  // the file's size
        }
        world.settle();
        EXPECT_EQ(world.completions.count(), started ? 1 : 0) << k << ": " << world.log.text();
        calls = std::max(calls, world.windows.faults.calls().size() - first);
      }
      EXPECT_GT(calls, 20U);
    }
  }
}

TEST_F(FailureTest, LateNotificationsOfAFailedSendFindNobody) {
  for (const sim::Delivery delivery : kDeliveries) {
    World world;
    prepare(world, delivery);
    world.windows.winHttp.bindContextOfFailedSend = true;
    world.windows.faults.failNth("WinHttpSendRequest", 1, 5);
    EXPECT_FALSE(upload(world));
    const auto context = world.exchange().context;
    world.request = nullptr;
    for (const std::uint32_t status : {platform::kStatusRequestError, platform::kStatusHandleClosing}) {
      platform::AsyncResult result{5, 12017};
      WinHttpRequest::WinHttpCallback(nullptr, context, status, &result, sizeof(result));
    }
    world.settle();
    EXPECT_EQ(world.completions.count(), 0);
    EXPECT_EQ(world.errors(), Errors({L"WinHttpRequest::performAsync(): WinHttpSendRequest failed: 0x5"}));
  }
}

}  // namespace
