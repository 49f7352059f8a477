#include "upload/azure_blob_uploader.h"

#include <algorithm>
#include <filesystem>

#include "core/exception.h"
#include "tests/unit/upload/upload_fixture.h"

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

std::string sparseSha256(std::uint64_t offset, std::uint64_t size) {
  std::vector<std::byte> data(static_cast<std::size_t>(size));
  for (std::size_t i = 0; i < data.size(); ++i) {
    data[i] = sim::Files::sparseByte(offset + i);
  }
  sim::Sha256 digest;
  digest.add(data);
  return digest.hex();
}

class UploaderTest : public UploadFixture {
 protected:
  /// \param blobType  of a request that creates a blob; null: of one that appends.
  void expectRequest(const sim::HttpExchange& got, const char* blobType, std::uint64_t offset, std::uint64_t size) {
    Headers headers = {{"Content-Type", "application/zip"}};
    if (size != 0) {
      headers.insert(headers.begin(), {"Content-Length", std::to_string(size)});
    }
    if (blobType != nullptr) {
      headers.emplace_back("x-ms-blob-type", blobType);
    }
    headers.emplace_back("x-ms-date", "Fri, 13 Nov 2026 04:13:48 GMT");
    headers.emplace_back("x-ms-version", "2020-04-08");
    EXPECT_EQ(got.headers, headers);
    EXPECT_EQ(got.verb, L"PUT");
    EXPECT_EQ(got.host, L"acct.blob.example");
    EXPECT_EQ(got.path, std::wstring(L"/c/b.zip?sv=1&sig=x%2F") + (blobType != nullptr ? L"" : L"&comp=appendblock&"));
    EXPECT_EQ(got.bodySize, size);
    EXPECT_EQ(got.bodySha256, sparseSha256(offset, size)) << "at " << offset;
  }
};

TEST_F(UploaderTest, EveryDelivery) {
  windows.winHttp.lateDelay = std::chrono::milliseconds(1);
  for (const sim::Delivery delivery : kDeliveries) {
    windows.winHttp.delivery = delivery;
    std::vector<std::uint64_t> sizes = {0, 1, kBlock + 1};
    if (delivery == sim::Delivery::kMixed) {
      sizes.push_back(kPutBlobLimit);
    }
    for (const std::uint64_t size : sizes) {
      prepare(size);
      ASSERT_TRUE(upload());
      uploader.reset(new AzureBlobUploader);  // the request in flight keeps the other
      expectEnd(kSucceeded, 1);
      expectRequest(sent().at(0), "BlockBlob", 0, size);
    }
    // To its end in one of them, which keeps this short; elsewhere the service refuses the seventh block.
    const bool whole = delivery == sim::Delivery::kWorker;
    prepare(kPutBlobLimit + 2 * kBlock, whole ? Replies() : Replies{{7, answer(500)}});
    ASSERT_TRUE(upload());
    expectEnd(whole ? kSucceeded : kFailed, whole ? 67 : 8);
    const auto requests = sent();
    expectRequest(requests.at(0), "AppendBlob", 0, 0);
    for (std::size_t i = 1; i < requests.size(); ++i) {
      expectRequest(requests[i], nullptr, (i - 1) * kBlock, kBlock);
    }
  }
}

// Completions inside the starting call must not nest block in block: a large file would need any amount of stack.
TEST_F(UploaderTest, AChainOfInlineCompletionsStaysShallow) {
  windows.winHttp.delivery = sim::Delivery::kInline;
  prepare(kAppended);
  std::vector<std::uintptr_t> depths;
  onRequest = [&depths](std::size_t) {
    const int here = 0;
    depths.push_back(reinterpret_cast<std::uintptr_t>(&here));
  };
  ASSERT_TRUE(upload());
  expectEnd(kSucceeded, 66);
  expectRequest(sent().back(), nullptr, kPutBlobLimit, 1);
  const auto [least, most] = std::minmax_element(depths.begin(), depths.end());
  EXPECT_LT(*most - *least, 65536U);
  EXPECT_EQ(
      log.count(std::wstring(L"AzureBlobUploader::AzureAppendBlockRequestCb(): Done uploading file: ") + kWidePath),
      1U);
}

TEST_F(UploaderTest, ArgumentsAndSizesThatAreRefused) {
  EXPECT_FALSE(uploader->uploadFile("", kBlobUrl, "", record()));
  EXPECT_FALSE(uploader->uploadFile(kPath, "", "", record()));
  EXPECT_FALSE(uploader->uploadFile(kPath, kBlobUrl, "", nullptr));
  EXPECT_EQ(log.count(L"AzureBlobUploader::uploadFile(): Invalid upload arguments"), 3U);

  prepare(209'715'250'000);
  EXPECT_FALSE(upload());
  EXPECT_EQ(log.count(std::wstring(L"AzureBlobUploader::uploadFile(): File ") + kWidePath + L" too large to upload"),
            1U);
  prepare(209'715'249'999);
  windows.faults.failNth("CreateFileW", 1, 32);
  EXPECT_FALSE(upload());
  EXPECT_EQ(
      log.count(std::wstring(L"AzureBlobUploader::useAppendBlock(): Unable to open file to upload: ") + kWidePath), 1U);
  prepare(1);
  uploader->cancelUpload();
  EXPECT_FALSE(upload());
  EXPECT_TRUE(log.lines().empty());
  expectEnd(kNothing, 0);
}

TEST_F(UploaderTest, RefusedAndThrowingStartsLeaveTheUploaderUsable) {
  prepare(1);
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
  EXPECT_EQ(log.count(L"AzureBlobUploader::AzureAppendBlockRequestCb(): Failed to append the previous chunk. Response "
                      L"Code: 409. Response headers: HTTP/1.1 409 Conflict\r\nx: \u00E4\r\n\r\n. Total bytes sent: "
                      L"12582912ll"),
            1U);
  EXPECT_EQ(uploader->getStorageErrorCode(), "InvalidBlobType");
  EXPECT_EQ(sent()[0].accessType, platform::kAccessTypeNamedProxy);
  EXPECT_EQ(sent()[0].bypass, L"*.local");
  EXPECT_EQ(sent()[1].accessType, platform::kAccessTypeAutomaticProxy) << "only the first request is handed the proxy";
}

TEST_F(UploaderTest, FileThatGrowsOrShrinksWhileItIsAppendedFails) {
  struct Row {
    std::uint64_t newSize;
    std::size_t requests;  // one that creates, blocks up to the short read, none after it
  };
  for (const Row& row : {Row{10 * kMiB, 4}, Row{8 * kMiB, 4}, Row{kPutBlobLimit + 3 * kMiB, 66}}) {
    prepare(kAppended);
    onRequest = [&](std::size_t index) {
      if (index == 2) {
        windows.files.resize(kWidePath, row.newSize);
      }
    };
    ASSERT_TRUE(upload());
    expectEnd(kFailed, row.requests);
    EXPECT_EQ(log.count(L"AzureBlobUploader::AzureAppendBlockRequestCb(): File stream no longer valid"), 1U);
  }
}

TEST_F(UploaderTest, PutBlobThatIsNotCreatedAndItsErrorCode) {
  struct Row {
    std::uint32_t status;
    const char *body, *code;
  };
  const Row rows[] = {
      {200, "", ""},
      {202, "<Error><Code>BlobNotFound</Code></Error>", "BlobNotFound"},
      {403, "\xEF\xBB\xBF<?xml version=\"1.0\"?><Error>\n <Code>A b</Code>", "A b"},
      {404, "<Error><Code></Code>", ""},
      {404, "<Code>early</Code><Error>", ""},
      {404, "<Code>early</Code><Error><Code>late</Code><Code>later</Code>", "late"},
      {404, "<Error></Code><Code>x", ""},
      {404, "<Error></Code><Code>x</Code>", "x"},
      {404, "<error><Code>x</Code>", ""},
      {404, "<Error><Code>x", ""},
  };
  EXPECT_EQ(uploader->getStorageErrorCode(), "");
  for (const Row& row : rows) {
    auto refusal = answer(row.status);
    refusal.body = row.body;
    prepare(1, {{0, refusal}});
    ASSERT_TRUE(upload());
    expectEnd(kFailed, 1);
    EXPECT_EQ(uploader->getStorageErrorCode(), row.code) << row.body;
    EXPECT_EQ(log.count(L"AzureBlobUploader::AzurePutBlobRequestCb(): Error headers: HTTP/1.1 " +
                        std::to_wstring(row.status)),
              1U);
  }
}

}  // namespace
