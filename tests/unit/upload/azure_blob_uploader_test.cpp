#include "upload/azure_blob_uploader.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <new>
#include <set>
#include <stdexcept>

#include "tests/unit/http/http_test.h"

namespace {

constexpr std::uint64_t kPutBlobLimit = 256 * kMiB;
constexpr std::uint64_t kBlock = 4 * kMiB;
constexpr std::uint64_t kAppended = kPutBlobLimit + 1;  ///< 66 requests: one that creates, 65 blocks
constexpr std::uint64_t kStored = 100;                  ///< bytes of each body that are compared
constexpr const char* kBlobUrl = "https://acct.blob.example/c/b.zip?sv=1&sig=x%2F";

using Replies = std::map<std::size_t, sim::HttpReply>;
using Outcomes = std::vector<bool>;  ///< what the completion function got, in order
const Outcomes kSucceeded{true}, kFailed{false}, kNothing;
const std::wstring kPutCb = L"AzureBlobUploader::AzurePutBlobRequestCb(): ";
const std::wstring kAppendCb = L"AzureBlobUploader::AzureAppendBlockRequestCb(): ";

sim::HttpReply answer(std::uint32_t status, const std::string& body = {}, bool hold = false) {
  sim::HttpReply out;
  out.status = status;
  out.rawHeaders = L"HTTP/1.1 " + std::to_wstring(status) + L"\r\nx: \u00E4\r\n\r\n";
  out.body = body;
  out.hold = hold;
  return out;
}

const sim::HttpReply kHeld = answer(201, "", true);

/// A machine with a blob service, an uploader, and the checks that hold after every upload.
class UploadFixture : public ::testing::Test, protected World {
 protected:
  UploadFixture() {
    windows.winHttp.storeBodyUpTo = kStored;
    windows.winHttp.lateDelay = std::chrono::milliseconds(1);
    windows.winHttp.proxies.pacFiles[L"http://pac"] = [](const std::wstring&) { return L""; };
  }

  /// Makes a new uploader and a file of that size; forgets the uploads before. The service answers the requests in
  /// `special`, counted from 0, by those replies, and all others by 201.
  void prepare(std::uint64_t size, Replies special = {}) {
    windows.files.writeSparse(kWidePath, size);
    windows.winHttp.onHeaders([this](const sim::HttpExchange& exchange) {
      onHeaders(exchange.index - first_);
      return std::nullopt;
    });
    windows.winHttp.onRequest([this, special = std::move(special)](const sim::HttpExchange& exchange) {
      const auto found = special.find(exchange.index - first_);
      return found == special.end() ? answer(201) : found->second;
    });
    first_ = windows.winHttp.requests().size();
    onHeaders = [](std::size_t) {};
    outcomes.clear();
    log.clear();
    uploader.reset(new AzureBlobUploader);
    uploader->setProxyConfig("proxy.example:8080", "*.local", "http://pac");
    windows.winHttp.proxies.pacCalls.clear();
  }

  bool upload(const std::string& path = kPath) {
    return uploader->uploadFile(path, kBlobUrl, "a2V5", [this](AzureBlobUploader* self, bool succeeded) {
      outcomes.push_back(succeeded);
      onDone(*self);
    });
  }

  /// Returns the requests of this upload.
  std::vector<sim::HttpExchange> sent() const {
    auto all = windows.winHttp.sentRequests();
    std::erase_if(all, [this](const sim::HttpExchange& exchange) { return exchange.index < first_; });
    return all;
  }
  /// Checks how the upload has ended, when nothing more can come.
  void expectEnd(const Outcomes& wanted, std::size_t requests) {
    windows.winHttp.waitUntilIdle();
    EXPECT_EQ(outcomes, wanted) << log.text();
    EXPECT_EQ(sent().size(), requests);
    EXPECT_EQ(uploader->refCount(), 1U) << "only the owner's";
  }

  std::function<void(std::size_t)> onHeaders = [](std::size_t) {};  ///< called before a request's body is sent
  std::function<void(AzureBlobUploader&)> onDone = [](AzureBlobUploader&) {};
  CORE::Reference<AzureBlobUploader> uploader{new AzureBlobUploader};
  Outcomes outcomes;  ///< the test's when nothing more can come

 private:
  std::size_t first_ = 0;
};

/// \param blobType  of a request that creates a blob; empty: of one that appends.
void expectRequest(const sim::HttpExchange& got, const std::string& blobType, std::uint64_t offset,
                   std::uint64_t size) {
  EXPECT_EQ(got.path, std::wstring(L"/c/b.zip?sv=1&sig=x%2F") + (blobType.empty() ? L"&comp=appendblock&" : L""));
  EXPECT_EQ(got.header("x-ms-blob-type"), blobType);
  EXPECT_EQ(got.header("Content-Type"), "application/zip");
  EXPECT_TRUE(got.header("Authorization").starts_with("SharedKey acct:"));
  EXPECT_EQ(got.bypass, blobType.empty() ? L"" : L"*.local") << "only the first is handed the proxy";
  EXPECT_EQ(got.header("Content-Length"), size == 0 ? "" : std::to_string(size));
  EXPECT_EQ(got.bodySize, size);
  for (std::uint64_t at = 0; at < std::min<std::uint64_t>(size, kStored); ++at) {
    ASSERT_EQ(std::byte(got.body.at(at)), sim::Files::sparseByte(offset + at)) << offset << " + " << at;
  }
}

TEST_F(UploadFixture, PutBlobAndAppendBlocksInEveryDelivery) {
  const Replies refusal = {{7, answer(500)}};  // which ends a chain early, and keeps this short
  const std::uint64_t blocks = kPutBlobLimit + kBlock;
  // Completions inside the starting call must not nest block in block: a large file would need any amount of stack.
  const std::tuple<sim::Delivery, const char*, std::uint64_t, std::uint64_t, Replies, Outcomes, std::size_t,
                   std::size_t>
      rows[] = {{sim::Delivery::kWorker, "worker", 1, blocks, {}, kSucceeded, 66, SIZE_MAX},
                {sim::Delivery::kInline, "inline", 1, kAppended, {}, kSucceeded, 66, 65535},
                {sim::Delivery::kLate, "late", 1, blocks, refusal, kFailed, 8, SIZE_MAX},
                {sim::Delivery::kMixed, "mixed", kPutBlobLimit, blocks, refusal, kFailed, 8, SIZE_MAX}};
  for (const auto& [delivery, name, put, appended, replies, wanted, count, maxStack] : rows) {
    SCOPED_TRACE(name);
    windows.winHttp.delivery = delivery;
    for (const std::uint64_t size : {0 * kMiB, kBlock + 1, put}) {
      prepare(size);
      ASSERT_TRUE(upload());
      uploader.reset(new AzureBlobUploader);  // the pending request keeps the other
      expectEnd(kSucceeded, 1);
      expectRequest(sent().at(0), "BlockBlob", 0, size);
      EXPECT_TRUE(size != kBlock + 1 || sent()[0].writes == std::vector<std::uint64_t>({kBlock, 1}));
    }
    prepare(appended, replies);
    std::set<std::uintptr_t> places;  // in the stack
    onHeaders = [&places](std::size_t) {
      const int here = 0;
      places.insert(reinterpret_cast<std::uintptr_t>(&here));
    };
    ASSERT_TRUE(upload());
    expectEnd(wanted, count);
    EXPECT_EQ(windows.winHttp.proxies.pacCalls.size(), 1U) << "and the PAC URL";
    const auto requests = sent();
    expectRequest(requests.at(0), "AppendBlob", 0, 0);
    for (std::uint64_t i = 1, at = 0; i < requests.size(); ++i, at += kBlock) {
      expectRequest(requests[i], "", at, std::min(kBlock, appended - at));
    }
    EXPECT_LE(*places.rbegin() - *places.begin(), maxStack);
    EXPECT_EQ(log.count(std::wstring(L"Cb(): Done uploading file: ") + kWidePath), wanted == kSucceeded ? 1U : 0U);
  }
}

TEST_F(UploadFixture, RefusedAndThrowingStartsLeaveTheUploaderUsable) {
  prepare(209'715'250'000);
  EXPECT_FALSE(uploader->uploadFile(kPath, kBlobUrl, "", nullptr));
  EXPECT_FALSE(upload());
  windows.files.writeSparse(kWidePath, 209'715'249'999);
  windows.faults.failNth("CreateFileW", 1, 32);
  EXPECT_FALSE(upload());
  const std::wstring invalid = L"AzureBlobUploader::uploadFile(): Invalid upload arguments", path = kWidePath;
  EXPECT_EQ(errors(), (Errors{invalid, L"AzureBlobUploader::uploadFile(): File " + path + L" too large to upload",
                              L"AzureBlobUploader::useAppendBlock(): Unable to open file to upload: " + path}));
  windows.files.writeSparse(kWidePath, 0);  // an empty file is delivered, but not one that cannot be opened
  EXPECT_THROW(upload("C:\\none.zip"), std::filesystem::filesystem_error);
  windows.faults.failNth("WinHttpSendRequest", 1, 12029);
  EXPECT_FALSE(upload());
  windows.faults.failNth("CreateFileW", 1, 32);
  EXPECT_FALSE(upload());
  EXPECT_EQ(errors().back(), L"WinHttpRequest::performAsync(): Unable to open file " + path + L": 0x20 Message 32.");
  expectEnd(kNothing, 0);
  EXPECT_EQ(windows.openHandlesText(), before);
  EXPECT_TRUE(upload());
  expectEnd(kSucceeded, 1);
}

struct Row {
  const char* name;
  std::uint64_t size;
  Replies replies;
  std::size_t at;  ///< the request in which that happens:
  std::function<void()> happens;
  Outcomes wanted;
  std::size_t requests;
  Errors errors;
  std::string code = "";
};

TEST_F(UploadFixture, RefusalsFilesThatChangeAndCancellationsInsideAStart) {
  const std::wstring put = kPutCb + L"Error headers: ";
  const Errors changed = {kAppendCb + L"File stream no longer valid"};
  const Errors invalid = {L"WinHttpRequest::UploadData(): File stream is invalid", put};
  const auto accepted = answer(202, "<Code>early</Code><Error></Code><Code>a b</Code><Code>later</Code>");
  const auto endless = answer(500, std::string(65536, 'x') + "<Error><Code>late</Code></Error>");
  const auto conflict = answer(409, "<?xml?><Error><Code>InvalidBlobType</Code><Message>no</Message></Error>");
  const Errors refused = {kAppendCb + L"Failed to append the previous chunk. Response Code: 409. Response headers: " +
                          conflict.rawHeaders + L". Total bytes sent: 12582912ll"};
  const auto resizing = [this](std::uint64_t size) { return [=, this] { windows.files.resize(kWidePath, size); }; };
  const auto cancelling = [this] { uploader->cancelUpload(); };  // counts, whether the answer is there or held
  const Row rows[] = {
      {"refused", 1, {{0, accepted}}, 0, [] {}, kFailed, 1, {put + accepted.rawHeaders}, "a b"},
      {"refused block", kAppended, {{3, conflict}}, 0, [] {}, kFailed, 4, refused, "InvalidBlobType"},
      // One request creates, then come blocks up to the short read, and none after it.
      {"appended, shrinks in a block", kAppended, {}, 2, resizing(10 * kMiB), kFailed, 4, changed},
      {"appended, shrinks to whole blocks", kAppended, {}, 2, resizing(8 * kMiB), kFailed, 4, changed},
      {"appended, grows", kAppended, {}, 2, resizing(kPutBlobLimit + 3 * kMiB), kFailed, 66, changed},
      {"put, grows by one byte", 2 * kBlock, {}, 0, resizing(2 * kBlock + 1), kFailed, 1, invalid},
      {"put, shrinks", 2 * kBlock, {}, 0, resizing(5 * kMiB), kFailed, 1, invalid},
      {"put, cancelled after the answer", 1, {}, 0, cancelling, kSucceeded, 1, {}},
      {"refused, a code beyond what is kept", 1, {{0, endless}}, 0, [] {}, kFailed, 1, {put + endless.rawHeaders}},
      {"appended, cancelled after the answer", kAppended, {}, 2, cancelling, kNothing, 3, {}},
      {"appended, cancelled before the answer", kAppended, {{2, kHeld}}, 2, cancelling, kNothing, 3, {}},
  };
  windows.winHttp.delivery = sim::Delivery::kInline;
  windows.winHttp.onClose = sim::OnClose::kDropped;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    prepare(row.size, row.replies);
    onHeaders = [&](std::size_t index) { return index == row.at ? row.happens() : void(); };
    EXPECT_EQ(uploader->getStorageErrorCode(), "");
    ASSERT_TRUE(upload());
    expectEnd(row.wanted, row.requests);
    EXPECT_EQ(errors(), row.errors);
    EXPECT_EQ(uploader->getStorageErrorCode(), row.code);
  }
}

TEST_F(UploadFixture, ACancelledPutBlobReportsOnceAndAnAppendChainEndsSilently) {
  const std::tuple<const char*, std::uint64_t, std::size_t, Outcomes> rows[] = {
      {"Put Blob", 1, 0, kFailed}, {"creation", kAppended, 0, kNothing}, {"block", kAppended, 3, kNothing}};
  for (const sim::OnClose onClose : kOnClose) {
    for (const bool closingInline : {true, false}) {
      for (const auto& [name, size, at, wanted] : rows) {
        SCOPED_TRACE(name + testing::PrintToString(std::pair(onClose, closingInline)));
        windows.winHttp.onClose = onClose;
        windows.winHttp.closingInline = closingInline;
        prepare(size, {{at, kHeld}});
        ASSERT_TRUE(upload());
        windows.winHttp.waitUntilHeld();
        uploader->cancelUpload();
        expectEnd(wanted, at + 1);
        EXPECT_EQ(log.count(L"doesn't exist"), 0U) << "late steps end quietly";
        EXPECT_FALSE(upload()) << "for good";
      }
    }
  }
  prepare(1);
  uploader->cancelUpload();  // nothing yet
  EXPECT_FALSE(upload());

  // A request that never completes: the cancellation stops waiting for it, and the upload still ends.
  windows.winHttp.delivery = sim::Delivery::kNever;
  prepare(1);
  ASSERT_TRUE(upload());
  EXPECT_EQ(outcomes, kNothing);
  uploader->cancelUpload();
  expectEnd(kFailed, 1);
  before = "1 event, 3 file";  // WinHTTP may still use what the request lent it: it is never freed
}

TEST_F(UploadFixture, CompletionThatLetsGoOrThrows) {
  const std::tuple<const char*, std::uint64_t, Outcomes, std::size_t, std::wstring> rows[] = {
      {"Put Blob", 1, kSucceeded, 1, kPutCb + L"boom"}, {"append", kAppended, kFailed, 2, kAppendCb + L"boom"}};
  for (const sim::Delivery delivery : {sim::Delivery::kWorker, sim::Delivery::kInline}) {
    for (const auto& [name, size, wanted, requests, error] : rows) {
      SCOPED_TRACE(name);
      windows.winHttp.delivery = delivery;
      prepare(size, {{1, answer(500)}});
      onDone = [this](AzureBlobUploader& self) {
        self.cancelUpload();
        uploader.reset(new AzureBlobUploader);  // the object must outlive this call all the same
        self.getStorageErrorCode();
        throw std::runtime_error("boom");
      };
      EXPECT_TRUE(upload());
      expectEnd(wanted, requests);
      EXPECT_EQ(errors().back(), error);
    }
  }
}

TEST_F(UploadFixture, ExceptionWhileARequestIsBeingStarted) {
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
    EXPECT_TRUE(upload());
    expectEnd({false, true}, 68);  // from the beginning: nothing of the attempt before counts
    EXPECT_EQ(errors(), Errors{kAppendCb + L"OutOfMem"});
    EXPECT_EQ(windows.openHandlesText(), before);
  }
}

}  // namespace
