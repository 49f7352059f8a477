#include <utility>

#include "core/base/exception.h"
#include "core/log/log.h"
#include "upload/azure_blob_uploader.h"

// The life of one request: it is prepared under the lock and started without it. Its completion comes on a thread of
// WinHTTP or inside the starting call, or it is cancelled. It is ended by the party that gets the reference of
// its PendingRequest.

namespace {

/// Runs a part of the handler of a step. An exception ends here, in the log.
/// \return false when there was an exception.
template <class Work>
bool runLogged(UploadStep step, Work work) noexcept {
  try {
    work();
    return true;
  } catch (...) {
    try {
      const std::wstring text = CORE::currentExceptionText();
      switch (step) {
        case UploadStep::kPutBlob:
          CORE::log(CORE::kError, L"AzureBlobUploader::AzurePutBlobRequestCb(): %s", text);
          break;
        case UploadStep::kAppendBlock:
          CORE::log(CORE::kError, L"AzureBlobUploader::AzureAppendBlockRequestCb(): %s", text);
          break;
      }
    } catch (...) {  // no memory for the text: the failure is still reported
    }
    return false;
  }
}

}  // namespace

/// Makes the state of the current request.
std::shared_ptr<PendingRequest> AzureBlobUploader::makePending(UploadStep step) {
  pending_ = std::make_shared<PendingRequest>(step);
  return pending_;
}

/// Starts a request. A completion that comes inside the starting call waits for handleEarlyCompletions().
/// \return true when the completion has come or will come.
/// \throws what the start threw, when no completion comes any more.
bool AzureBlobUploader::start(const PreparedRequest& prepared) {
  const std::shared_ptr<PendingRequest>& pending = prepared.pending;
  pending->holdReference(*this);
  try {
    const bool started =
        prepared.send(*prepared.request, [pending = prepared.pending](HttpRequest* request, std::string response) {
          onCompletion(pending, request, std::move(response));
        });
    if (!started && !pending->hasEarlyResponse()) {
      return pending->takeReference() == nullptr;  // null: the completion has come on another thread
    }
  } catch (...) {
    if (!pending->hasEarlyResponse() && pending->takeReference()) {
      throw;
    }
    CORE::log(CORE::kError, L"AzureBlobUploader::start(): %s", CORE::currentExceptionText());
  }
  CORE::MutexLock lock(lock_);
  pending->markStarted();
  // A cancelUpload() that found this request inside its start left the cancellation to this thread. No request is
  // prepared after a cancellation, so a cancelled uploader's pending request is the one that it found.
  const bool cancelNow = cancelled_ && pending_ == pending && !pending->hasEarlyResponse();
  lock.unlock();
  if (cancelNow) {
    cancel(prepared.request, pending);
  }
  return true;
}

/// The completion of a request. When it comes inside the starting call, its response is only kept: to handle it here
/// would start the next block inside the start of this one, and so on, and the stack would grow with the file.
void AzureBlobUploader::onCompletion(const std::shared_ptr<PendingRequest>& pending, HttpRequest* request,
                                     std::string response) {
  if (pending->isBeingStartedHere()) {
    pending->setEarlyResponse(std::move(response));
    return;
  }
  if (const CORE::Reference<AzureBlobUploader> self = pending->takeReference()) {
    self->handleCompletion(pending->step(), request, std::move(response));
    self->handleEarlyCompletions();
  }
}

/// Calls the handler of a request that has ended. The caller has taken the request's reference and holds it.
void AzureBlobUploader::handleCompletion(UploadStep step, HttpRequest* request, std::string response) {
  const bool handled = runLogged(step, [&] {
    switch (step) {
      case UploadStep::kPutBlob:
        return AzurePutBlobRequestCb(request, std::move(response));
      case UploadStep::kAppendBlock:
        return AzureAppendBlockRequestCb(request, std::move(response));
    }
  });
  if (!handled) {
    runLogged(step, [&] { finishFailed(step, request); });
  }
}

/// Handles each request that completed inside its own start. Its handler may start the next one, which may complete
/// inside its start as well; so this goes on until a request is really pending or the upload has ended.
void AzureBlobUploader::handleEarlyCompletions() {
  for (;;) {
    CORE::MutexLock lock(lock_);
    const std::shared_ptr<PendingRequest> pending = pending_;
    const std::shared_ptr<AzureBlobRequest> request = currentRequest_;
    const bool hasEnded = !pending->isBeingStarted() && pending->hasEarlyResponse();
    lock.unlock();
    if (!hasEnded || !pending->takeReference()) {
      return;
    }
    handleCompletion(pending->step(), request.get(), pending->takeEarlyResponse());
  }
}

/// Cancels a request and ends it here, because a cancelled request does not complete any more. A Put Blob is reported
/// with the status that it has; an append chain reports nothing.
void AzureBlobUploader::cancel(const std::shared_ptr<AzureBlobRequest>& request,
                               const std::shared_ptr<PendingRequest>& pending) {
  request->cancelRequest();
  if (const CORE::Reference<AzureBlobUploader> self = pending->takeReference()) {
    self->handleCompletion(pending->step(), request.get(), std::string());
  }
}

void AzureBlobUploader::cancelUpload() {
  const CORE::Reference<AzureBlobUploader> self = CORE::addReference(*this);
  CORE::MutexLock lock(lock_);
  cancelled_ = true;
  const std::shared_ptr<PendingRequest> pending = pending_;
  const std::shared_ptr<AzureBlobRequest> request = currentRequest_;
  // Asked under the lock: a request whose starting call has not returned yet cannot be cancelled, and start() makes up
  // for it when it takes the lock next.
  const bool canCancel = pending != nullptr && !pending->isBeingStarted();
  lock.unlock();
  if (canCancel && pending->holdsReference()) {
    cancel(request, pending);
  }
}
