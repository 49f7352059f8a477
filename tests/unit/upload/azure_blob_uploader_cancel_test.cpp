#include <new>
#include <stdexcept>

#include "tests/unit/upload/upload_fixture.h"

namespace {

class UploaderCancelTest : public UploadFixture {};

TEST_F(UploaderCancelTest, APutBlobReportsOnceAndAnAppendChainEndsSilently) {
  const std::tuple<std::uint64_t, std::size_t, Outcomes> rows[] = {
      {1, 0, kFailed}, {kAppended, 0, kNothing}, {kAppended, 3, kNothing}};
  for (const sim::OnClose onClose : {sim::OnClose::kCancelled, sim::OnClose::kDropped, sim::OnClose::kDelivered}) {
    for (const auto& [size, at, wanted] : rows) {
      windows.winHttp.onClose = onClose;
      prepare(size, {{at, answer(201, true)}});
      ASSERT_TRUE(upload());
      windows.winHttp.waitUntilHeld();
      uploader->cancelUpload();
      expectEnd(wanted, at + 1);
      EXPECT_FALSE(upload()) << "for good";
    }
  }
  prepare(1);
  uploader->cancelUpload();  // nothing yet
  EXPECT_FALSE(upload());
  EXPECT_TRUE(log.lines().empty());
}

// A request that is never heard of again: cancelling gives up waiting for it and the upload still ends.
TEST_F(UploaderCancelTest, APutBlobWithoutAnyNotification) {
  windows.winHttp.delivery = sim::Delivery::kNever;
  prepare(1);
  ASSERT_TRUE(upload());
  EXPECT_EQ(outcomes, kNothing);
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
      onRequest = [this, at](std::size_t index) {
        if (index == at) {
          uploader->cancelUpload();
        }
      };
      EXPECT_TRUE(upload());
      expectEnd(append ? kNothing : Outcomes{!held}, at + 1);
    }
  }
}

TEST_F(UploaderCancelTest, FromTheCompletionFunctionThatLetsGo) {
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    prepare(1);
    windows.winHttp.delivery = delivery;
    auto* const last = new AzureBlobUploader;
    EXPECT_TRUE(last->uploadFile(kPath, kBlobUrl, "", [this](AzureBlobUploader* self, bool succeeded) {
      self->cancelUpload();
      self->release();  // the owner's reference: the object must outlive this call all the same
      EXPECT_EQ(self->getStorageErrorCode(), "");
      outcomes.push_back(succeeded);
    }));
    expectEnd(kSucceeded, 1);
  }
}

TEST_F(UploaderCancelTest, ExceptionWhileARequestIsBeingStarted) {
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    windows.winHttp.delivery = delivery;
    prepare(kAppended);
    windows.clock.onGetSystemTime = [looks = 0]() mutable {
      if (++looks == 1 || looks == 4) {
        throw std::bad_alloc();
      }
    };
    EXPECT_THROW(upload(), std::bad_alloc);
    expectEnd(kNothing, 0);
    EXPECT_TRUE(upload());
    expectEnd(kFailed, 2);
    EXPECT_EQ(errors(), Errors{L"AzureBlobUploader::AzureAppendBlockRequestCb(): OutOfMem"});
    EXPECT_EQ(windows.openHandlesText(), before);
  }
}

TEST_F(UploaderCancelTest, ExceptionOfTheCompletionIsLoggedAndItIsNotCalledAgain) {
  for (const bool append : {false, true}) {
    prepare(append ? kAppended : 1, {{1, answer(500)}});
    EXPECT_TRUE(uploader->uploadFile(kPath, kBlobUrl, "", [this](AzureBlobUploader*, bool succeeded) {
      outcomes.push_back(succeeded);
      throw std::runtime_error("boom");
    }));
    expectEnd(append ? kFailed : kSucceeded, append ? 2 : 1);
    EXPECT_EQ(errors().back(), append ? L"AzureBlobUploader::AzureAppendBlockRequestCb(): boom"
                                      : L"AzureBlobUploader::AzurePutBlobRequestCb(): boom");
  }
}

}  // namespace
