#include <new>
#include <stdexcept>

#include "tests/unit/upload/upload_fixture.h"

namespace {

using namespace upload_test;

constexpr std::uint64_t kAppended = kPutBlobLimit + 3 * kBlock;

class UploaderCancelTest : public UploadFixture {
 protected:
  static sim::HttpReply held() {
    sim::HttpReply reply = created();
    reply.hold = true;
    return reply;
  }
};

TEST_F(UploaderCancelTest, BeforeTheStart) {
  windows.files.write(kWidePath, "bundle");
  uploader->cancelUpload();
  EXPECT_FALSE(upload());
  EXPECT_EQ(settled(), kNothing);
  EXPECT_EQ(requestCount(), 0U);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(UploaderCancelTest, AnAppendChainEndsSilentlyWhereverItIs) {
  windows.files.writeSparse(kWidePath, kAppended);
  for (const std::size_t at : {0U, 1U, 3U}) {
    const std::size_t before = requestCount();
    serve({{before + at, held()}});
    uploader.reset(new AzureBlobUploader);
    ASSERT_TRUE(upload());
    windows.winHttp.waitUntilHeld();
    uploader->cancelUpload();
    EXPECT_EQ(settled(), kNothing);
    EXPECT_EQ(requestCount() - before, at + 1);
    EXPECT_EQ(uploader->refCount(), 1U);
    EXPECT_FALSE(upload());
  }
}

TEST_F(UploaderCancelTest, APutBlobReportsOnce) {
  windows.files.write(kWidePath, "bundle");
  for (const sim::OnClose onClose : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
    outcomes.clear();
    windows.winHttp.onClose = onClose;
    serve({{requestCount(), held()}});
    uploader.reset(new AzureBlobUploader);
    ASSERT_TRUE(upload());
    windows.winHttp.waitUntilHeld();
    uploader->cancelUpload();
    EXPECT_EQ(settled(), kFailed);
    EXPECT_EQ(uploader->refCount(), 1U);
  }
}

// A request that is never heard of again: cancelling gives up waiting for it and the upload still ends.
TEST_F(UploaderCancelTest, APutBlobWithoutAnyNotification) {
  windows.files.write(kWidePath, "bundle");
  windows.winHttp.delivery = sim::Delivery::kNever;
  ASSERT_TRUE(upload());
  EXPECT_EQ(outcomes.all(), kNothing);
  uploader->cancelUpload();
  EXPECT_EQ(outcomes.all(), kFailed);
  EXPECT_EQ(uploader->refCount(), 1U);
  openAtTheEnd = "1 event, 3 file";  // WinHTTP may still use what the request lent it: it is never freed
}

// Inside the starting call there is nothing to cancel yet; the cancellation counts all the same.
TEST_F(UploaderCancelTest, WhileARequestIsBeingStarted) {
  windows.winHttp.delivery = sim::Delivery::kInline;
  for (const bool append : {false, true}) {
    outcomes.clear();
    windows.files.writeSparse(kWidePath, append ? kAppended : 1);
    const std::size_t before = requestCount();
    windows.winHttp.onRequest([&](const sim::HttpExchange& exchange) {
      if (!append || exchange.index == before + 2) {
        uploader->cancelUpload();
      }
      return created();
    });
    uploader.reset(new AzureBlobUploader);
    EXPECT_TRUE(upload());
    EXPECT_EQ(settled(), append ? kNothing : kSucceeded);
    EXPECT_EQ(requestCount() - before, append ? 3U : 1U);
    EXPECT_EQ(uploader->refCount(), 1U);
  }
}

// The date is read inside the starting call, before anything is sent.
TEST_F(UploaderCancelTest, WhileARequestIsBeingStartedAndThenRuns) {
  HookedClock clock;
  for (const bool append : {false, true}) {
    outcomes.clear();
    windows.files.writeSparse(kWidePath, append ? kAppended : 1);
    const std::size_t before = requestCount();
    serve({{before, append ? created() : held()}, {before + 1, held()}});
    uploader.reset(new AzureBlobUploader);
    clock.onLook(append ? 2 : 1, [this] { uploader->cancelUpload(); });
    EXPECT_TRUE(upload());
    EXPECT_EQ(settled(), append ? kNothing : kFailed);
    EXPECT_EQ(uploader->refCount(), 1U);
    EXPECT_EQ(requestCount() - before, append ? 2U : 1U);
  }
}

TEST_F(UploaderCancelTest, WhileAStartedRequestHasNotAnsweredYet) {
  windows.files.write(kWidePath, "bundle");
  windows.winHttp.delivery = sim::Delivery::kLate;
  ASSERT_TRUE(upload());
  windows.winHttp.waitUntilHeld();
  uploader->cancelUpload();
  windows.winHttp.release();
  EXPECT_EQ(settled(), kFailed);
}

TEST_F(UploaderCancelTest, FromTheCompletionFunction) {
  windows.files.write(kWidePath, "bundle");
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    Outcomes seen;
    const auto record = seen.function();
    windows.winHttp.delivery = delivery;
    auto* const fresh = new AzureBlobUploader;
    EXPECT_TRUE(fresh->uploadFile(kPath, kUrl, "", [record](AzureBlobUploader* self, bool succeeded) {
      self->cancelUpload();
      EXPECT_EQ(self->getStorageErrorCode(), "");
      self->release();  // the owner's reference: the object must outlive this call all the same
      record(self, succeeded);
    }));
    EXPECT_EQ(seen.wait(), kSucceeded);
    windows.winHttp.waitUntilIdle();
    EXPECT_EQ(seen.all(), kSucceeded);
  }
}

class UploaderFailureTest : public UploadFixture {};

// The date is read while a request is being started, so here a start fails with an exception.
TEST_F(UploaderFailureTest, ExceptionWhileARequestIsBeingStarted) {
  HookedClock clock;
  windows.files.writeSparse(kWidePath, kAppended);
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    log.clear();
    outcomes.clear();
    windows.winHttp.delivery = delivery;
    uploader.reset(new AzureBlobUploader);
    clock.onLook(1, [] { throw std::bad_alloc(); });
    EXPECT_THROW(upload(), std::bad_alloc);
    EXPECT_EQ(settled(), kNothing);

    const std::size_t before = requestCount();
    clock.onLook(3, [] { throw std::bad_alloc(); });
    EXPECT_TRUE(upload());
    EXPECT_EQ(outcomes.wait(), kFailed);
    EXPECT_EQ(settled(), kFailed);
    EXPECT_EQ(requestCount() - before, 2U);
    EXPECT_EQ(log.count(L"AzureBlobUploader::AzureAppendBlockRequestCb(): OutOfMem"), 1U) << log.text();
    EXPECT_EQ(uploader->refCount(), 1U);
    EXPECT_EQ(windows.openHandlesText(), openBefore);
  }
}

TEST_F(UploaderFailureTest, NextBlockThatCannotBeStarted) {
  windows.files.writeSparse(kWidePath, kAppended);
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    for (const char* call : {"WinHttpOpen", "WinHttpOpenRequest", "WinHttpSendRequest"}) {
      outcomes.clear();
      windows.winHttp.delivery = delivery;
      const std::size_t before = requestCount();
      windows.faults.failNth(call, 3, 8);
      uploader.reset(new AzureBlobUploader);
      EXPECT_TRUE(upload());
      EXPECT_EQ(outcomes.wait(), kFailed);
      EXPECT_EQ(settled(), kFailed);
      EXPECT_EQ(requestCount() - before, 2U);
      EXPECT_EQ(uploader->refCount(), 1U);
      windows.faults.clear();
    }
  }
}

TEST_F(UploaderFailureTest, ExceptionOfAHandlerIsLoggedAndReportedOnce) {
  for (const bool append : {false, true}) {
    log.clear();
    windows.files.writeSparse(kWidePath, append ? kPutBlobLimit + 1 : 1);
    uploader.reset(new AzureBlobUploader);
    int calls = 0;
    windows.winHttp.delivery = sim::Delivery::kInline;
    EXPECT_TRUE(uploader->uploadFile(kPath, kUrl, "", [&calls](AzureBlobUploader*, bool) {
      ++calls;
      throw std::runtime_error("boom");
    }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(log.count(append ? L"AzureBlobUploader::AzureAppendBlockRequestCb(): boom"
                               : L"AzureBlobUploader::AzurePutBlobRequestCb(): boom"),
              1U);
    EXPECT_EQ(uploader->refCount(), 1U);
  }
}

TEST_F(UploaderFailureTest, ConnectionThatBreaksInTheMiddle) {
  for (const sim::HttpStage stage : {sim::HttpStage::kSend, sim::HttpStage::kReceive, sim::HttpStage::kQueryData}) {
    for (const bool append : {false, true}) {
      outcomes.clear();
      const std::size_t before = requestCount();
      windows.files.writeSparse(kWidePath, append ? kAppended : 1);
      windows.winHttp.onHeaders([&](const sim::HttpExchange& exchange) -> std::optional<sim::HttpReply> {
        if (exchange.index != before + (append ? 2 : 0)) {
          return std::nullopt;
        }
        sim::HttpReply broken = created();
        broken.failure = sim::HttpFailure{stage};
        return broken;
      });
      uploader.reset(new AzureBlobUploader);
      ASSERT_TRUE(upload());
      EXPECT_EQ(outcomes.wait().size(), 1U);
      EXPECT_EQ(settled().size(), 1U);
    }
  }
}

}  // namespace
