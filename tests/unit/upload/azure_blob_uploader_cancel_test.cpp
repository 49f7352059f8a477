#include <atomic>
#include <new>
#include <stdexcept>

#include "tests/unit/upload/upload_fixture.h"

namespace {

class UploaderCancelTest : public UploadFixture {};

TEST_F(UploaderCancelTest, APutBlobReportsOnceAndAnAppendChainEndsSilently) {
  struct Row {
    std::uint64_t size;
    std::size_t at;
    Outcomes outcomes;
  };
  const Row rows[] = {{1, 0, kFailed}, {kAppended, 0, kNothing}, {kAppended, 1, kNothing}, {kAppended, 3, kNothing}};
  for (const sim::OnClose onClose : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
    for (const Row& row : rows) {
      windows.winHttp.onClose = onClose;
      prepare(row.size, {{row.at, answer(201, true)}});
      ASSERT_TRUE(upload());
      windows.winHttp.waitUntilHeld();
      uploader->cancelUpload();
      expectEnd(row.outcomes, row.at + 1);
      EXPECT_FALSE(upload()) << "for good";
    }
  }
}

// A request that is never heard of again: cancelling gives up waiting for it and the upload still ends.
TEST_F(UploaderCancelTest, APutBlobWithoutAnyNotification) {
  windows.winHttp.delivery = sim::Delivery::kNever;
  prepare(1);
  ASSERT_TRUE(upload());
  EXPECT_EQ(outcomes(), kNothing);
  uploader->cancelUpload();
  expectEnd(kFailed, 1);
  before = "1 event, 3 file";  // WinHTTP may still use what the request lent it: it is never freed
}

// Inside the starting call there is nothing to cancel yet; the cancellation counts all the same, whether the request
// has its answer when the call returns or is still held.
TEST_F(UploaderCancelTest, WhileARequestIsBeingStarted) {
  windows.winHttp.delivery = sim::Delivery::kInline;
  for (const bool append : {false, true}) {
    for (const bool held : {false, true}) {
      const std::size_t at = append ? 2 : 0;
      prepare(append ? kAppended : 1, {{at, answer(201, held)}});
      onRequest = [&](std::size_t index) {
        if (index == at) {
          uploader->cancelUpload();
        }
      };
      EXPECT_TRUE(upload());
      expectEnd(append ? kNothing : Outcomes{!held}, at + 1);
    }
  }
}

TEST_F(UploaderCancelTest, WhileAStartedRequestHasNotAnsweredYet) {
  windows.winHttp.delivery = sim::Delivery::kLate;
  prepare(1);
  ASSERT_TRUE(upload());
  windows.winHttp.waitUntilHeld();
  uploader->cancelUpload();
  windows.winHttp.release();
  expectEnd(kFailed, 1);
}

TEST_F(UploaderCancelTest, FromTheCompletionFunctionThatLetsGo) {
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    prepare(1);
    windows.winHttp.delivery = delivery;
    auto* const last = new AzureBlobUploader;
    EXPECT_TRUE(last->uploadFile(kPath, kBlobUrl, "", [record = record()](AzureBlobUploader* self, bool succeeded) {
      self->cancelUpload();
      self->release();  // the owner's reference: the object must outlive this call all the same
      EXPECT_EQ(self->getStorageErrorCode(), "");
      record(self, succeeded);
    }));
    expectEnd(kSucceeded, 1);
  }
}

class UploaderFailureTest : public UploadFixture {};

/// The simulated clock that throws at a look at the date, that is, while a request is being started. In the place of
/// the simulation's own while it lives; WinHTTP has to be idle at both ends.
class ThrowingClock : public sim::Clock {
 public:
  explicit ThrowingClock(sim::Kernel& kernel) : sim::Clock(kernel) { platform::install(&replaced_); }
  ~ThrowingClock() override { platform::install(&real_); }

  platform::SystemTime GetSystemTime() override {
    if (--throwAt == 0) {
      throw std::bad_alloc();
    }
    return sim::Clock::GetSystemTime();
  }
  std::atomic<int> throwAt{0};  ///< counted from now on

 private:
  const platform::Platform& real_ = platform::current();
  const platform::Platform replaced_{real_.certificates, *this,          real_.crash,   real_.digests,   real_.files,
                                     real_.heap,         real_.internet, real_.objects, real_.processes, real_.registry,
                                     real_.security,     real_.system,   real_.text,    real_.winHttp};
};

TEST_F(UploaderFailureTest, ExceptionWhileARequestIsBeingStarted) {
  ThrowingClock clock(windows.kernel);
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    windows.winHttp.delivery = delivery;
    prepare(kAppended);
    clock.throwAt = 1;
    EXPECT_THROW(upload(), std::bad_alloc);
    expectEnd(kNothing, 0);
    clock.throwAt = 3;
    EXPECT_TRUE(upload());
    expectEnd(kFailed, 2);
    EXPECT_EQ(log.count(L"AzureBlobUploader::AzureAppendBlockRequestCb(): OutOfMem"), 1U) << log.text();
    EXPECT_EQ(windows.openHandlesText(), before);
  }
}

TEST_F(UploaderFailureTest, NextBlockThatCannotBeStarted) {
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    for (const char* call : {"WinHttpOpen", "WinHttpOpenRequest", "WinHttpSendRequest"}) {
      windows.winHttp.delivery = delivery;
      prepare(kAppended);
      windows.faults.failNth(call, 3, 8);
      EXPECT_TRUE(upload());
      expectEnd(kFailed, 2);
    }
  }
}

TEST_F(UploaderFailureTest, ExceptionOfTheCompletionIsLoggedAndItIsNotCalledAgain) {
  for (const bool append : {false, true}) {
    prepare(append ? kAppended : 1, {{1, answer(500)}});
    EXPECT_TRUE(uploader->uploadFile(kPath, kBlobUrl, "", [record = record()](AzureBlobUploader* self, bool succeeded) {
      record(self, succeeded);
      throw std::runtime_error("boom");
    }));
    expectEnd(append ? kFailed : kSucceeded, append ? 2 : 1);
    EXPECT_EQ(log.count(append ? L"AzureBlobUploader::AzureAppendBlockRequestCb(): boom"
                               : L"AzureBlobUploader::AzurePutBlobRequestCb(): boom"),
              1U);
  }
}

}  // namespace
