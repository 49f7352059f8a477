#pragma once

#include <gtest/gtest.h>

#include <map>

#include "tests/unit/http/http_test.h"
#include "upload/azure_blob_uploader.h"

inline constexpr std::uint64_t kPutBlobLimit = 256 * kMiB;
inline constexpr std::uint64_t kBlock = 4 * kMiB;
inline constexpr std::uint64_t kAppended = kPutBlobLimit + 1;  ///< 66 requests: one that creates, 65 blocks
inline constexpr const char* kBlobUrl = "https://acct.blob.example/c/b.zip?sv=1&sig=x%2F";

/// What the completion function was told, in order.
using Outcomes = std::vector<bool>;
inline const Outcomes kSucceeded{true}, kFailed{false}, kNothing;

/// A blob service, and the checks that hold after every upload.
class UploadFixture : public ::testing::Test, protected World {
 protected:
  using Replies = std::map<std::size_t, sim::HttpReply>;

  UploadFixture() { windows.winHttp.storeBodyUpTo = 0; }
  static sim::HttpReply answer(std::uint32_t status, bool hold = false) {
    sim::HttpReply out;
    out.status = status;
    out.hold = hold;
    return out;
  }

  /// A new uploader and a file of that size; forgets the uploads before. The service answers the requests named in
  /// `special`, counted from 0, with that, and all others with 201.
  void prepare(std::uint64_t size, Replies special = {}) {
    windows.files.writeSparse(kWidePath, size);
    windows.winHttp.onRequest([this, special = std::move(special)](const sim::HttpExchange& exchange) {
      const std::size_t index = exchange.index - first_;
      onRequest(index);
      const auto found = special.find(index);
      return found == special.end() ? answer(201) : found->second;
    });
    first_ = windows.winHttp.requests().size();
    outcomes.clear();
    log.clear();
    uploader.reset(new AzureBlobUploader);
  }

  AzureBlobUploader::Completion record() {
    return [this](AzureBlobUploader*, bool succeeded) { outcomes.push_back(succeeded); };
  }
  bool upload() { return uploader->uploadFile(kPath, kBlobUrl, "", record()); }

  /// The requests of this upload.
  std::vector<sim::HttpExchange> sent() const {
    auto all = windows.winHttp.sentRequests();
    std::erase_if(all, [this](const sim::HttpExchange& exchange) { return exchange.index < first_; });
    return all;
  }
  /// What the upload has come to, when nothing more can come.
  void expectEnd(const Outcomes& wanted, std::size_t requests) {
    windows.winHttp.waitUntilIdle();
    EXPECT_EQ(outcomes, wanted) << log.text();
    EXPECT_EQ(sent().size(), requests);
    EXPECT_EQ(uploader->refCount(), 1U) << "only the owner's";
  }

  /// Runs before the service answers, with the request's number.
  std::function<void(std::size_t)> onRequest = [](std::size_t) {};
  std::unique_ptr<AzureBlobUploader, void (*)(AzureBlobUploader*)> uploader{new AzureBlobUploader,
                                                                            [](auto* owned) { owned->release(); }};
  Outcomes outcomes;  ///< the test's once it is settled

 private:
  std::size_t first_ = 0;
};
