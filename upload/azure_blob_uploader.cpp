#include "upload/azure_blob_uploader.h"

#include <algorithm>
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

// Bytes of the last response that are kept. The service's error documents are far smaller.
constexpr std::size_t kMaxKeptResponse = std::size_t{64} << 10;

constexpr auto kCreated = static_cast<std::int32_t>(platform::kHttpStatusCreated);

std::int32_t responseCodeOf(HttpRequest& request) { return static_cast<std::int32_t>(request.getResponseCode()); }

std::wstring headersOf(HttpRequest& request) {
  std::string headers;
  request.getResponseHeaders(headers);
  return CORE::toWideLossy(headers);
}

}  // namespace

void AzureBlobUploader::setProxyConfig(const std::string& proxyServer, const std::string& proxyBypass,
                                       const std::string& pacUrl) {
  const CORE::MutexLock lock(lock_);
  proxy_ = {proxyServer, proxyBypass, pacUrl};
}

bool AzureBlobUploader::uploadFile(const std::string& filePath, const std::string& url, const std::string& accountKey,
                                   Completion onDone) {
  if (filePath.empty() || url.empty() || !onDone) {
    CORE::log(CORE::kError, L"AzureBlobUploader::uploadFile(): Invalid upload arguments");
    return false;
  }
  const CORE::Reference<AzureBlobUploader> self = CORE::addReference(*this);
  std::shared_ptr<AzureBlobRequest> earlier;  // outlives the lock, so that no request is destroyed under it
  std::optional<PreparedRequest> prepared;
  {
    const CORE::MutexLock lock(lock_);
    if (cancelled_) {
      return false;
    }
    file_ = SourceFile{};  // nothing of an upload before counts
    file_.path = filePath;
    url_ = url;
    accountKey_ = CORE::mstr::secret(accountKey);
    completion_ = std::move(onDone);
    file_.size = CORE::fileSize(CORE::to_wstr(file_.path, CORE::kUtf8));
    // kept: the division accepts up to 49,999 bytes more than 50,000 blocks hold.
    if (file_.size / kMaxBlocks > kBlockBytes) {
      CORE::log(CORE::kError, L"AzureBlobUploader::uploadFile(): File %s too large to upload",
                CORE::toWideLossy(file_.path));
      return false;
    }
    earlier = std::exchange(currentRequest_, AzureBlobRequest::create());
    currentRequest_->setProxy(proxy_.server);
    currentRequest_->setProxyBypass(proxy_.bypass);
    currentRequest_->setPacUrl(proxy_.pacUrl);
    prepared = file_.size > kMaxPutBlobBytes ? useAppendBlock() : usePutBlob();
  }
  if (!prepared || !start(*prepared)) {
    return false;
  }
  handleEarlyCompletions();
  return true;
}

AzureBlobUploader::PreparedRequest AzureBlobUploader::usePutBlob() {
  currentRequest_->setKey(accountKey_);
  currentRequest_->setHeaders({{"x-ms-blob-type", "BlockBlob"}});
  startTime_ = platform::current().clock._time64();
  const auto send = [url = url_, path = file_.path](AzureBlobRequest& request, HttpCompletion completion) {
    return request.putFileAsync(ContentType::kZip, url, path, std::move(completion));
  };
  return {currentRequest_, makePending(UploadStep::kPutBlob), send};
}

std::optional<AzureBlobUploader::PreparedRequest> AzureBlobUploader::useAppendBlock() {
  if (!file_.stream.open(CORE::to_wstr(file_.path, CORE::kUtf8))) {
    CORE::log(CORE::kError, L"AzureBlobUploader::useAppendBlock(): Unable to open file to upload: %s",
              CORE::toWideLossy(file_.path));
    return std::nullopt;
  }
  file_.block = std::make_shared<std::vector<std::byte>>(static_cast<std::size_t>(kBlockBytes));
  currentRequest_->setKey(accountKey_);
  currentRequest_->setHeaders({{"x-ms-blob-type", "AppendBlob"}});
  startTime_ = platform::current().clock._time64();
  const auto send = [url = url_](AzureBlobRequest& request, HttpCompletion completion) {
    return request.putStringAsync(ContentType::kZip, url, std::string(), std::move(completion));
  };
  return PreparedRequest{currentRequest_, makePending(UploadStep::kAppendBlock), send};
}

AzureBlobUploader::PreparedRequest AzureBlobUploader::appendNextBlock() {
  const std::size_t count = file_.stream.read(*file_.block);
  file_.bytesSent += count;  // before it is sent: the log line of a failure counts the block that failed
  currentRequest_ = AzureBlobRequest::create();
  currentRequest_->setKey(accountKey_);
  currentRequest_->setQueryParameters({{"comp", "appendblock"}});
  // Lent, not copied: the next block is read into it by this request's completion, when nobody reads it any more.
  currentRequest_->lendBody(file_.block);
  const std::span<const std::byte> block = *file_.block;
  const auto send = [url = url_, block, count](AzureBlobRequest& request, HttpCompletion completion) {
    return request.putAsync(ContentType::kZip, url, block, count, std::move(completion));
  };
  return {currentRequest_, makePending(UploadStep::kAppendBlock), send};
}

void AzureBlobUploader::AzurePutBlobRequestCb(HttpRequest* request, std::string response) {
  const std::int32_t status = responseCodeOf(*request);
  const bool succeeded = status == kCreated;
  if (!succeeded) {
    CORE::log(CORE::kError, L"AzureBlobUploader::AzurePutBlobRequestCb(): Error headers: %s", headersOf(*request));
  }
  CORE::MutexLock lock(lock_);
  const Completion onDone = finish(status, std::move(response));
  lock.unlock();
  if (onDone) {
    onDone(this, succeeded);  // the caller's reference keeps this object through the call
  }
}

void AzureBlobUploader::AzureAppendBlockRequestCb(HttpRequest* request, std::string response) {
  std::shared_ptr<AzureBlobRequest> earlier;  // outlives the lock, so that no request is destroyed under it
  CORE::MutexLock lock(lock_);
  if (cancelled_) {
    return;
  }
  const std::int32_t status = responseCodeOf(*request);
  bool succeeded = false;
  if (status != kCreated) {
    // kept: "%ull" prints the low 32 bits of the count and the letters ll.
    CORE::log(
        CORE::kError,
        L"AzureBlobUploader::AzureAppendBlockRequestCb(): Failed to append the previous chunk. Response Code: %d. Response headers: %s. Total bytes sent: %ull",
        status, headersOf(*request), file_.bytesSent);
  } else if (file_.bytesSent == file_.size) {
    CORE::log(CORE::kDebug, L"AzureBlobUploader::AzureAppendBlockRequestCb(): Done uploading file: %s",
              CORE::toWideLossy(file_.path));
    succeeded = true;
  } else if (!file_.stream.good()) {
    CORE::log(CORE::kError, L"AzureBlobUploader::AzureAppendBlockRequestCb(): File stream no longer valid");
  } else {
    earlier = currentRequest_;
    const PreparedRequest next = appendNextBlock();
    lock.unlock();
    if (start(next)) {
      return;
    }
    lock.lock();
    if (cancelled_) {  // while the start failed: an append chain that was cancelled reports nothing
      return;
    }
  }
  const Completion onDone = finish(status, std::move(response));
  lock.unlock();
  if (onDone) {
    onDone(this, succeeded);  // the caller's reference keeps this object through the call
  }
}

void AzureBlobUploader::finishFailed(UploadStep step, HttpRequest* request) {
  CORE::MutexLock lock(lock_);
  const bool reportsNothing = step == UploadStep::kAppendBlock && cancelled_;
  if (!completion_ || reportsNothing) {
    return;
  }
  const Completion onDone = finish(responseCodeOf(*request), std::string());
  lock.unlock();
  onDone(this, false);
}

AzureBlobUploader::Completion AzureBlobUploader::finish(std::int32_t status, std::string response) {
  lastStatusCode_ = status;
  response.resize(std::min(response.size(), kMaxKeptResponse));
  response.shrink_to_fit();
  lastResponse_ = std::move(response);
  file_.stream.close();  // the owner removes the file as soon as the completion function is called
  return std::exchange(completion_, nullptr);
}

std::string AzureBlobUploader::getStorageErrorCode() {
  const CORE::MutexLock lock(lock_);
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
