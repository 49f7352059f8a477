#include "upload/azure_blob_uploader.h"

#include <algorithm>
#include <filesystem>

#include "core/exception.h"
#include "tests/unit/upload/upload_fixture.h"

namespace {

using namespace upload_test;

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

Headers wantedHeaders(const char* blobType, std::uint64_t size) {
  Headers out;
  if (size != 0) {
    out.emplace_back("Content-Length", std::to_string(size));
  }
  out.emplace_back("Content-Type", "application/zip");
  if (blobType != nullptr) {
    out.emplace_back("x-ms-blob-type", blobType);
  }
  out.emplace_back("x-ms-date", "Fri, 13 Nov 2026 04:13:48 GMT");
  out.emplace_back("x-ms-version", "2020-04-08");
  return out;
}

class UploadWays : public UploadFixture, public ::testing::WithParamInterface<sim::Delivery> {
 protected:
  UploadWays() {
    windows.winHttp.delivery = GetParam();
    windows.winHttp.lateDelay = std::chrono::milliseconds(1);
  }

  void run(std::uint64_t size) {
    windows.files.writeSparse(kWidePath, size);
    ASSERT_TRUE(upload());
    uploader.reset();  // the requests in flight keep it
    EXPECT_EQ(outcomes.wait(), kSucceeded);
    EXPECT_EQ(settled(), kSucceeded);
  }

  void expectRequest(const sim::HttpExchange& got, const char* blobType, std::uint64_t offset, std::uint64_t size) {
    const bool isBlock = blobType == nullptr;
    EXPECT_EQ(got.verb, L"PUT");
    EXPECT_EQ(got.host, L"acct.blob.example");
    EXPECT_EQ(got.path, isBlock ? L"/c/b.zip?sv=1&sig=x%2F&comp=appendblock&" : L"/c/b.zip?sv=1&sig=x%2F");
    EXPECT_EQ(got.headers, wantedHeaders(blobType, size));
    EXPECT_EQ(got.bodySize, size);
    EXPECT_EQ(got.bodySha256, sparseSha256(offset, size)) << "at " << offset;
  }
};

TEST_P(UploadWays, FilesUpToTheLimitGoByPutBlob) {
  std::vector<std::uint64_t> sizes = {0, 1, kBlock + 1};
  if (GetParam() == sim::Delivery::kMixed) {
    sizes.push_back(kPutBlobLimit);
  }
  for (const std::uint64_t size : sizes) {
    outcomes.clear();
    uploader.reset(new AzureBlobUploader);
    run(size);
    expectRequest(windows.winHttp.sentRequests().back(), "BlockBlob", 0, size);
  }
  EXPECT_EQ(requestCount(), sizes.size());
}

TEST_P(UploadWays, LargerFilesAreAppendedInOrder) {
  const std::uint64_t sizes[] = {kPutBlobLimit + 1, kPutBlobLimit + 2 * kBlock};
  // One size for each way of delivery but the default one keeps this short.
  const std::uint64_t size = GetParam() == sim::Delivery::kWorker ? sizes[1] : sizes[0];
  run(size);
  const auto requests = windows.winHttp.sentRequests();
  ASSERT_EQ(requests.size(), GetParam() == sim::Delivery::kWorker ? 67U : 66U);
  expectRequest(requests[0], "AppendBlob", 0, 0);
  for (std::size_t i = 1; i < requests.size(); ++i) {
    const std::uint64_t offset = (i - 1) * kBlock;
    expectRequest(requests[i], nullptr, offset, std::min(kBlock, size - offset));
  }
  EXPECT_EQ(log.count(L"AzureBlobUploader::AzureAppendBlockRequestCb(): Done uploading file: " + kWidePath), 1U);
}

std::string deliveryName(const ::testing::TestParamInfo<sim::Delivery>& info) {
  static constexpr const char* kNames[] = {"Worker", "Inline", "Late", "Mixed", "Never"};
  return kNames[static_cast<std::size_t>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Delivery, UploadWays,
                         ::testing::Values(sim::Delivery::kWorker, sim::Delivery::kInline, sim::Delivery::kLate,
                                           sim::Delivery::kMixed),
                         deliveryName);

class UploaderTest : public UploadFixture {};

// Completions inside the starting call must not nest block in block: a large file would need any amount of stack.
TEST_F(UploaderTest, AChainOfInlineCompletionsStaysShallow) {
  windows.winHttp.delivery = sim::Delivery::kInline;
  windows.files.writeSparse(kWidePath, kPutBlobLimit + 1);
  std::vector<std::uintptr_t> depths;
  windows.winHttp.onRequest([&depths](const sim::HttpExchange&) {
    const int here = 0;
    depths.push_back(reinterpret_cast<std::uintptr_t>(&here));
    return created();
  });
  ASSERT_TRUE(upload());
  EXPECT_EQ(outcomes.all(), kSucceeded);
  ASSERT_EQ(depths.size(), 66U);
  const auto [least, most] = std::minmax_element(depths.begin(), depths.end());
  EXPECT_LT(*most - *least, 65536U);
}

TEST_F(UploaderTest, OnlyTheFirstRequestIsHandedTheProxy) {
  uploader->setProxyConfig("proxy.example:8080", "*.local", "");
  windows.files.writeSparse(kWidePath, kPutBlobLimit + 1);
  sim::HttpReply refused;
  refused.status = 500;
  serve({{1, refused}});
  ASSERT_TRUE(upload());
  EXPECT_EQ(outcomes.wait(), kFailed);
  const auto requests = windows.winHttp.sentRequests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0].accessType, platform::kAccessTypeNamedProxy);
  EXPECT_EQ(requests[0].bypass, L"*.local");
  EXPECT_EQ(requests[1].accessType, platform::kAccessTypeAutomaticProxy);
}

TEST_F(UploaderTest, ArgumentsAndSizesThatAreRefused) {
  const auto done = outcomes.function();
  EXPECT_FALSE(uploader->uploadFile("", kUrl, "", done));
  EXPECT_FALSE(uploader->uploadFile(kPath, "", "", done));
  EXPECT_FALSE(uploader->uploadFile(kPath, kUrl, "", nullptr));
  EXPECT_EQ(log.count(L"AzureBlobUploader::uploadFile(): Invalid upload arguments"), 3U);

  windows.files.writeSparse(kWidePath, 209'715'250'000);
  EXPECT_FALSE(upload());
  EXPECT_EQ(log.count(L"AzureBlobUploader::uploadFile(): File " + kWidePath + L" too large to upload"), 1U);
  EXPECT_EQ(requestCount(), 0U);

  windows.files.writeSparse(kWidePath, 209'715'249'999);
  windows.faults.failNth("CreateFileW", 1, 32);
  EXPECT_FALSE(upload());
  EXPECT_EQ(log.count(L"AzureBlobUploader::useAppendBlock(): Unable to open file to upload: " + kWidePath), 1U);
  EXPECT_EQ(settled(), kNothing);
}

TEST_F(UploaderTest, RefusedAndThrowingStartsLeaveTheUploaderUsable) {
  EXPECT_THROW(upload(), std::filesystem::filesystem_error);  // there is no file yet
  windows.files.write(kWidePath, "bundle");
  windows.faults.failNth("WinHttpSendRequest", 1, 12029);
  EXPECT_FALSE(upload());
  windows.faults.failNth("file_size", 2, 5);  // the request's own look at the size
  EXPECT_ANY_THROW(upload());
  EXPECT_THROW(uploader->uploadFile("C:\\\xFF", kUrl, "", outcomes.function()), CORE::coreException);
  EXPECT_EQ(settled(), kNothing);
  EXPECT_EQ(uploader->refCount(), 1U);
  EXPECT_EQ(windows.openHandlesText(), openBefore);
  EXPECT_TRUE(upload());
  EXPECT_EQ(outcomes.wait(), kSucceeded);
}

TEST_F(UploaderTest, PutBlobThatIsNotCreated) {
  windows.files.write(kWidePath, "bundle");
  for (const std::uint32_t status : {200U, 202U, 403U}) {
    outcomes.clear();
    sim::HttpReply reply;
    reply.status = status;
    reply.headers = L"x-ms-error-code: Nope\r\n";
    serve({{requestCount(), reply}});
    uploader.reset(new AzureBlobUploader);
    ASSERT_TRUE(upload());
    EXPECT_EQ(outcomes.wait(), kFailed);
  }
  EXPECT_EQ(settled(), kFailed);
  EXPECT_EQ(requestCount(), 3U);
  EXPECT_EQ(log.count(L"AzureBlobUploader::AzurePutBlobRequestCb(): Error headers: HTTP/1.1 403"), 1U);
}

TEST_F(UploaderTest, ConflictOnTheThirdBlockEndsTheUpload) {
  windows.files.writeSparse(kWidePath, kPutBlobLimit + kBlock);
  sim::HttpReply conflict;
  conflict.status = 409;
  conflict.rawHeaders = L"HTTP/1.1 409 Conflict\r\nx: \u00E4\r\n\r\n";
  conflict.body = "<?xml?><Error><Code>InvalidBlobType</Code><Message>no</Message></Error>";
  serve({{3, conflict}});
  ASSERT_TRUE(upload());
  EXPECT_EQ(outcomes.wait(), kFailed);
  EXPECT_EQ(settled(), kFailed);
  EXPECT_EQ(requestCount(), 4U);
  EXPECT_EQ(log.count(L"AzureBlobUploader::AzureAppendBlockRequestCb(): Failed to append the previous chunk. Response "
                      L"Code: 409. Response headers: HTTP/1.1 409 Conflict\r\nx: \u00E4\r\n\r\n. Total bytes sent: "
                      L"12582912ll"),
            1U);
  EXPECT_EQ(uploader->getStorageErrorCode(), "InvalidBlobType");
}

TEST_F(UploaderTest, FileThatGrowsOrShrinksWhileItIsAppendedFails) {
  struct Row {
    std::uint64_t newSize;
    std::size_t requests;  // one that creates, blocks up to the short read, none after it
  };
  for (const Row& row : {Row{10 * kMiB, 4}, Row{8 * kMiB, 4}, Row{kPutBlobLimit + 3 * kMiB, 66}}) {
    outcomes.clear();
    log.clear();
    const std::size_t before = requestCount();
    windows.files.writeSparse(kWidePath, kPutBlobLimit + 1);
    windows.winHttp.onRequest([&](const sim::HttpExchange& exchange) {
      if (exchange.index == before + 2) {
        windows.files.resize(kWidePath, row.newSize);
      }
      return created();
    });
    uploader.reset(new AzureBlobUploader);
    ASSERT_TRUE(upload());
    EXPECT_EQ(outcomes.wait(), kFailed);
    EXPECT_EQ(settled(), kFailed);
    EXPECT_EQ(requestCount() - before, row.requests);
    EXPECT_EQ(log.count(L"AzureBlobUploader::AzureAppendBlockRequestCb(): File stream no longer valid"), 1U);
  }
}

TEST_F(UploaderTest, StorageErrorCode) {
  struct Row {
    const char *body, *code;
  };
  const Row rows[] = {
      {"", ""},
      {"<Error><Code>BlobNotFound</Code></Error>", "BlobNotFound"},
      {"\xEF\xBB\xBF<?xml version=\"1.0\"?><Error>\n <Code>A b</Code>", "A b"},
      {"<Error><Code></Code>", ""},
      {"<Code>early</Code><Error>", ""},
      {"<Code>early</Code><Error><Code>late</Code><Code>later</Code>", "late"},
      {"<Error></Code><Code>x", ""},
      {"<Error></Code><Code>x</Code>", "x"},
      {"<error><Code>x</Code>", ""},
      {"<Error><Code>x", ""},
  };
  windows.files.write(kWidePath, "bundle");
  EXPECT_EQ(uploader->getStorageErrorCode(), "");
  for (const Row& row : rows) {
    outcomes.clear();
    uploader.reset(new AzureBlobUploader);
    sim::HttpReply reply;
    reply.status = 404;
    reply.body = row.body;
    serve({{requestCount(), reply}});
    ASSERT_TRUE(upload());
    EXPECT_EQ(outcomes.wait(), kFailed);
    EXPECT_EQ(uploader->getStorageErrorCode(), row.code) << row.body;
  }
}

}  // namespace
