#include "upload/azure_blob_uploader.h"

#include <span>
#include <string_view>
#include <utility>

#include "core/base/unicode.h"
#include "core/log/log.h"
#include "core/text/convert.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

namespace {

constexpr auto kCreated = static_cast<std::int32_t>(platform::kHttpStatusCreated);

std::int32_t statusOf(HttpRequest& request) { return static_cast<std::int32_t>(request.getResponseCode()); }

std::wstring headersOf(HttpRequest& request) {
  std::string headers;
  request.getResponseHeaders(headers);
  return CORE::toWideLossy(headers);
}

}  // namespace

void AzureBlobUploader::setProxyConfig(const std::string& proxyServer, const std::string& proxyBypass,
                                       const std::string& pacUrl) {
  const Lock lock(lock_);
  proxyServer_ = proxyServer;
  proxyBypass_ = proxyBypass;
  pacUrl_ = pacUrl;
}

bool AzureBlobUploader::uploadFile(const std::string& filePath, const std::string& url, const std::string& accountKey,
                                   Completion onDone) {
  if (filePath.empty() || url.empty() || !onDone) {
    CORE::log(CORE::kError, L"AzureBlobUploader::uploadFile(): Invalid upload arguments");
    return false;
  }
  const Reference self = reference();
  std::shared_ptr<AzureBlobRequest> earlier;  // let go of after the lock
  Lock lock(lock_);
  if (cancelled_) {
    return false;
  }
  filePath_ = filePath;
  url_ = url;
  accountKey_ = CORE::mstr::secret(accountKey);
  completion_ = std::move(onDone);
  fileSize_ = CORE::fileSize(CORE::to_wstr(filePath_, CORE::kUtf8));
  // kept: the division accepts up to 49,999 bytes more than 50,000 blocks hold.
  if (fileSize_ / maxChunkCount_ > chunkSize_) {
    CORE::log(CORE::kError, L"AzureBlobUploader::uploadFile(): File %s too large to upload",
              CORE::toWideLossy(filePath_));
    return false;
  }
  earlier = std::exchange(currentRequest_, AzureBlobRequest::create());
  currentRequest_->setProxy(proxyServer_);
  currentRequest_->setProxyBypass(proxyBypass_);
  currentRequest_->setPacUrl(pacUrl_);
  const bool started = fileSize_ > putBlobLimit_ ? useAppendBlock(lock) : usePutBlob(lock);
  if (started) {
    settle();
  }
  return started;
}

bool AzureBlobUploader::usePutBlob(Lock& lock) {
  currentRequest_->setKey(accountKey_);
  currentRequest_->setHeaders({{"x-ms-blob-type", "BlockBlob"}});
  startTime_ = platform::current().clock._time64();
  const std::string path = filePath_;
  const Launch launch = board(Step::kPutBlob);
  lock.unlock();
  return start(launch, [&](HttpCompletion completion) {
    return launch.request->putFileAsync(ContentType::kZip, launch.url, path, std::move(completion));
  });
}

bool AzureBlobUploader::useAppendBlock(Lock& lock) {
  if (!fileStream_.open(CORE::to_wstr(filePath_, CORE::kUtf8))) {
    CORE::log(CORE::kError, L"AzureBlobUploader::useAppendBlock(): Unable to open file to upload: %s",
              CORE::toWideLossy(filePath_));
    return false;
  }
  chunkBuffer_ = std::make_shared<std::vector<std::byte>>(static_cast<std::size_t>(chunkSize_));
  currentRequest_->setKey(accountKey_);
  currentRequest_->setHeaders({{"x-ms-blob-type", "AppendBlob"}});
  startTime_ = platform::current().clock._time64();
  const Launch launch = board(Step::kAppendBlock);
  lock.unlock();
  return start(launch, [&launch](HttpCompletion completion) {
    return launch.request->putStringAsync(ContentType::kZip, launch.url, std::string(), std::move(completion));
  });
}

bool AzureBlobUploader::appendNextBlock(Lock& lock) {
  const std::size_t count = fileStream_.read(*chunkBuffer_);
  bytesSent_ += count;  // before it is sent: a failure counts the block that failed
  auto earlier = std::exchange(currentRequest_, AzureBlobRequest::create());
  currentRequest_->setKey(accountKey_);
  currentRequest_->setQueryParameters({{"comp", "appendblock"}});
  currentRequest_->lendBody(chunkBuffer_);  // it is filled anew in the completion, when nobody reads it any more
  const Launch launch = board(Step::kAppendBlock);
  const std::span<const std::byte> chunk = *chunkBuffer_;
  lock.unlock();
  earlier.reset();
  return start(launch, [&](HttpCompletion completion) {
    return launch.request->putAsync(ContentType::kZip, launch.url, chunk, count, std::move(completion));
  });
}

void AzureBlobUploader::AzurePutBlobRequestCb(HttpRequest* request, std::string response) {
  const std::int32_t status = statusOf(*request);
  const bool succeeded = status == kCreated;
  if (!succeeded) {
    CORE::log(CORE::kError, L"AzureBlobUploader::AzurePutBlobRequestCb(): Error headers: %s", headersOf(*request));
  }
  Lock lock(lock_);
  finish(lock, succeeded, status, std::move(response));
}

void AzureBlobUploader::AzureAppendBlockRequestCb(HttpRequest* request, std::string response) {
  Lock lock(lock_);
  if (cancelled_) {
    return;
  }
  const std::int32_t status = statusOf(*request);
  bool succeeded = false;
  if (status != kCreated) {
    // kept: "%ull" prints the low 32 bits of the count and the letters ll.
    CORE::log(
        CORE::kError,
        L"AzureBlobUploader::AzureAppendBlockRequestCb(): Failed to append the previous chunk. Response Code: %d. Response headers: %s. Total bytes sent: %ull",
        status, headersOf(*request), bytesSent_);
  } else if (bytesSent_ == fileSize_) {
    CORE::log(CORE::kDebug, L"AzureBlobUploader::AzureAppendBlockRequestCb(): Done uploading file: %s",
              CORE::toWideLossy(filePath_));
    succeeded = true;
  } else if (!fileStream_.good()) {
    CORE::log(CORE::kError, L"AzureBlobUploader::AzureAppendBlockRequestCb(): File stream no longer valid");
  } else if (appendNextBlock(lock)) {
    return;
  } else {
    lock.lock();
    if (cancelled_) {
      return;
    }
  }
  finish(lock, succeeded, status, std::move(response));
}

void AzureBlobUploader::finish(Lock& lock, bool succeeded, std::int32_t status, std::string response) {
  lastStatusCode_ = status;
  lastResponse_ = std::move(response);
  fileStream_.close();  // the owner removes the file as soon as it hears of the end
  const Completion done = std::exchange(completion_, nullptr);
  lock.unlock();
  if (done) {
    done(this, succeeded);  // land() holds the reference that keeps this object through the call
  }
}

void AzureBlobUploader::finishFailed(Step step, HttpRequest* request) {
  Lock lock(lock_);
  const bool silent = step == Step::kAppendBlock && cancelled_;
  if (completion_ && !silent) {
    finish(lock, false, statusOf(*request), std::string());
  }
}

std::string AzureBlobUploader::getStorageErrorCode() {
  const Lock lock(lock_);
  return storageErrorCode(lastResponse_);
}

std::string storageErrorCode(std::string_view response) {
  static constexpr std::string_view kOpening = "<Code>";
  const std::size_t error = response.find("<Error>");
  const std::size_t code = error == response.npos ? error : response.find(kOpening, error);
  const std::size_t end = code == response.npos ? code : response.find("</Code>", code);
  if (end == response.npos) {
    return std::string();
  }
  return std::string(response.substr(code + kOpening.size(), end - code - kOpening.size()));
}
