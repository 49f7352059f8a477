#include "upload/azure_blob_uploader.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "core/exception.h"
#include "tests/unit/upload/upload_fixture.h"

namespace {

class UploaderTest : public UploadFixture {};

/// \param blobType  of a request that creates a blob; empty: of one that appends.
void expectRequest(const sim::HttpExchange& got, const std::string& blobType, std::uint64_t offset,
                   std::uint64_t size) {
  EXPECT_EQ(got.path, std::wstring(L"/c/b.zip?sv=1&sig=x%2F") + (blobType.empty() ? L"&comp=appendblock&" : L""));
  EXPECT_EQ(got.header("x-ms-blob-type"), blobType);
  EXPECT_EQ(got.header("Content-Type"), "application/zip");
  EXPECT_EQ(got.header("Content-Length"), size == 0 ? "" : std::to_string(size));
  std::vector<std::byte> body(static_cast<std::size_t>(size));
  std::generate(body.begin(), body.end(), [at = offset]() mutable { return sim::Files::sparseByte(at++); });
  sim::Sha256 digest;
  digest.add(body);
  EXPECT_EQ(got.bodySha256, digest.hex()) << "at " << offset;
}

TEST_F(UploaderTest, PutBlobInEveryDelivery) {
  windows.winHttp.lateDelay = std::chrono::milliseconds(1);
  for (const sim::Delivery delivery : kDeliveries) {
    windows.winHttp.delivery = delivery;
    for (const std::uint64_t size : {0 * kMiB, kBlock + 1, delivery == sim::Delivery::kMixed ? kPutBlobLimit : 1}) {
      prepare(size);
      ASSERT_TRUE(upload());
      uploader.reset(new AzureBlobUploader);  // the request in flight keeps the other
      expectEnd(kSucceeded, 1);
      expectRequest(sent().at(0), "BlockBlob", 0, size);
    }
  }
}

TEST_F(UploaderTest, AppendBlocksInEveryDelivery) {
  windows.winHttp.lateDelay = std::chrono::milliseconds(1);
  for (const sim::Delivery delivery : kDeliveries) {
    windows.winHttp.delivery = delivery;
    const bool isInline = delivery == sim::Delivery::kInline;
    std::set<std::uintptr_t> places;  // in the stack
    onRequest = [&places](std::size_t) {
      const int here = 0;
      places.insert(reinterpret_cast<std::uintptr_t>(&here));
    };
    // To its end in two of them, which keeps this short; elsewhere the service refuses the seventh block.
    const bool whole = isInline || delivery == sim::Delivery::kWorker;
    const std::uint64_t size = kPutBlobLimit + (isInline ? 1 : kBlock);
    prepare(size, whole ? Replies() : Replies{{7, answer(500)}});
    ASSERT_TRUE(upload());
    expectEnd(whole ? kSucceeded : kFailed, whole ? 66 : 8);
    const auto requests = sent();
    expectRequest(requests.at(0), "AppendBlob", 0, 0);
    for (std::uint64_t i = 1, at = 0; i < requests.size(); ++i, at += kBlock) {
      expectRequest(requests[i], "", at, std::min(kBlock, size - at));
    }
    // Completions inside the starting call must not nest block in block: a large file would need any amount of stack.
    EXPECT_TRUE(!isInline || *places.rbegin() - *places.begin() < 65536U);
    const std::wstring done = L"AzureBlobUploader::AzureAppendBlockRequestCb(): Done uploading file: ";
    EXPECT_EQ(log.count(done + kWidePath), whole ? 1U : 0U);
  }
}

TEST_F(UploaderTest, RefusedAndThrowingStartsLeaveTheUploaderUsable) {
  prepare(209'715'250'000);
  EXPECT_FALSE(uploader->uploadFile("", kBlobUrl, "", record()));
  EXPECT_FALSE(uploader->uploadFile(kPath, "", "", record()));
  EXPECT_FALSE(uploader->uploadFile(kPath, kBlobUrl, "", nullptr));
  EXPECT_FALSE(upload());
  windows.files.writeSparse(kWidePath, 209'715'249'999);
  windows.faults.failNth("CreateFileW", 1, 32);
  EXPECT_FALSE(upload());
  const std::wstring invalid = L"AzureBlobUploader::uploadFile(): Invalid upload arguments", path = kWidePath;
  EXPECT_EQ(errors(), (Errors{invalid, invalid, invalid,
                              L"AzureBlobUploader::uploadFile(): File " + path + L" too large to upload",
                              L"AzureBlobUploader::useAppendBlock(): Unable to open file to upload: " + path}));

  windows.files.writeSparse(kWidePath, 1);
  EXPECT_THROW(uploader->uploadFile("C:\\none.zip", kBlobUrl, "", record()), std::filesystem::filesystem_error);
  windows.faults.failNth("WinHttpSendRequest", 1, 12029);
  EXPECT_FALSE(upload());
  windows.faults.failNth("file_size", 2, 5);  // the request's own look at the size
  EXPECT_ANY_THROW(upload());
  EXPECT_THROW(uploader->uploadFile("C:\\\xFF", kBlobUrl, "", record()), CORE::coreException);
  expectEnd(kNothing, 0);
  EXPECT_EQ(windows.openHandlesText(), before);
  EXPECT_TRUE(upload());
  expectEnd(kSucceeded, 1);
}

TEST_F(UploaderTest, ConflictOnTheThirdBlockEndsTheUpload) {
  auto conflict = answer(409);
  conflict.rawHeaders = L"HTTP/1.1 409 Conflict\r\nx: \u00E4\r\n\r\n";
  conflict.body = "<?xml?><Error><Code>InvalidBlobType</Code><Message>no</Message></Error>";
  prepare(kAppended, {{3, conflict}});
  uploader->setProxyConfig("proxy.example:8080", "*.local", "");
  ASSERT_TRUE(upload());
  expectEnd(kFailed, 4);
  EXPECT_EQ(errors(), Errors{L"AzureBlobUploader::AzureAppendBlockRequestCb(): Failed to append the previous chunk. "
                             L"Response Code: 409. Response headers: " +
                             conflict.rawHeaders + L". Total bytes sent: 12582912ll"});
  EXPECT_EQ(uploader->getStorageErrorCode(), "InvalidBlobType");
  EXPECT_EQ(sent()[0].accessType, platform::kAccessTypeNamedProxy);
  EXPECT_EQ(sent()[0].bypass, L"*.local");
  EXPECT_EQ(sent()[1].accessType, platform::kAccessTypeAutomaticProxy) << "only the first request is handed the proxy";
}

TEST_F(UploaderTest, FileThatGrowsOrShrinksWhileItIsAppendedFails) {
  // The new size, and the requests: one that creates, blocks up to the short read, none after it.
  for (const auto& [size, requests] : {std::pair(10 * kMiB, 4U), {8 * kMiB, 4U}, {kPutBlobLimit + 3 * kMiB, 66U}}) {
    prepare(kAppended);
    onRequest = [this, size = size](std::size_t index) {
      if (index == 2) {
        windows.files.resize(kWidePath, size);
      }
    };
    ASSERT_TRUE(upload());
    expectEnd(kFailed, requests);
    EXPECT_EQ(errors(), Errors{L"AzureBlobUploader::AzureAppendBlockRequestCb(): File stream no longer valid"});
  }
}

TEST_F(UploaderTest, PutBlobThatIsNotCreated) {
  auto refusal = answer(202);
  refusal.body = "<Error><Code>BlobNotFound</Code></Error>";
  prepare(1, {{0, refusal}});
  EXPECT_EQ(uploader->getStorageErrorCode(), "");
  ASSERT_TRUE(upload());
  expectEnd(kFailed, 1);
  EXPECT_EQ(uploader->getStorageErrorCode(), "BlobNotFound");
  EXPECT_EQ(storageErrorCode("<Code>early</Code><Error></Code><Code>a b</Code><Code>later</Code>"), "a b");
  EXPECT_EQ(storageErrorCode("<Error><Code>x"), "");  // and whatever else: see the fuzz target
  EXPECT_EQ(log.count(L"AzureBlobUploader::AzurePutBlobRequestCb(): Error headers: HTTP/1.1 202"), 1U);
}

}  // namespace
