#include <atomic>
#include <utility>

#include "core/exception.h"
#include "core/log.h"
#include "upload/azure_blob_uploader.h"

/// One request on its way, and the reference to the uploader that its completion holds. Whoever claims the reference
/// ends the flight: the completion, a start that failed, or a cancellation. So each flight ends once, however often a
/// request completes, and a request that is never heard of again keeps no uploader once it was cancelled.
class AzureBlobUploader::Flight {
 public:
  explicit Flight(Step flown) : step(flown) {}
  Flight(const Flight&) = delete;
  Flight& operator=(const Flight&) = delete;
  ~Flight() { claim(); }

  void await(AzureBlobUploader& uploader) { uploader_.store(uploader.reference().release()); }
  bool isAwaited() const { return uploader_.load() != nullptr; }
  /// Null when somebody else was first.
  Reference claim() { return Reference(uploader_.exchange(nullptr)); }

  const Step step;
  // Guarded by the uploader's lock.
  bool starting = true;
  bool cancelWanted = false;

 private:
  std::atomic<AzureBlobUploader*> uploader_{nullptr};
};

namespace {

/// Runs a handler's work; an exception ends here, in the log. False when there was one.
template <class Work>
bool guarded(bool isPutBlob, Work work) noexcept {
  try {
    work();
    return true;
  } catch (...) {
    try {
      const std::wstring text = CORE::currentExceptionText();
      if (isPutBlob) {
        CORE::log(CORE::kError, L"AzureBlobUploader::AzurePutBlobRequestCb(): %s", text);
      } else {
        CORE::log(CORE::kError, L"AzureBlobUploader::AzureAppendBlockRequestCb(): %s", text);
      }
    } catch (...) {  // no memory for the text: the failure is still reported
    }
    return false;
  }
}

}  // namespace

AzureBlobUploader::Reference AzureBlobUploader::reference() {
  addRef();
  return Reference(this);
}

/// Makes the flight of the current request; the lock is held.
AzureBlobUploader::Launch AzureBlobUploader::board(Step step) {
  Launch launch{currentRequest_, url_, std::make_shared<Flight>(step)};
  flight_ = launch.flight;
  return launch;
}

/// Starts a request without the lock; true when its completion has come or will come. A cancellation that came while
/// the request had nothing to cancel yet is made up for here.
bool AzureBlobUploader::start(const Launch& launch, const std::function<bool(HttpCompletion)>& send) {
  launch.flight->await(*this);
  try {
    const bool started = send([flight = launch.flight](HttpRequest* request, std::string response) {
      land(flight, request, std::move(response));
    });
    if (!started) {
      return !launch.flight->claim();
    }
  } catch (...) {
    if (launch.flight->claim()) {
      throw;
    }
    CORE::log(CORE::kError, L"AzureBlobUploader::start(): %s", CORE::currentExceptionText());
  }
  Lock lock(lock_);
  launch.flight->starting = false;
  const bool cancelWanted = launch.flight->cancelWanted;
  lock.unlock();
  if (cancelWanted) {
    cancel(launch.request, launch.flight);
  }
  return true;
}

/// The end of a flight, on whichever thread; a second one of the same flight does nothing.
void AzureBlobUploader::land(const std::shared_ptr<Flight>& flight, HttpRequest* request, std::string response) {
  const Reference self = flight->claim();
  if (!self) {
    return;
  }
  const bool isPutBlob = flight->step == Step::kPutBlob;
  const bool handled = guarded(isPutBlob, [&] {
    if (isPutBlob) {
      self->AzurePutBlobRequestCb(request, std::move(response));
    } else {
      self->AzureAppendBlockRequestCb(request, std::move(response));
    }
  });
  if (!handled) {
    guarded(isPutBlob, [&] { self->finishFailed(flight->step, request); });
  }
}

/// A cancelled request does not complete any more, so its flight ends here: a Put Blob with the status it has, an
/// append chain silently.
void AzureBlobUploader::cancel(const std::shared_ptr<AzureBlobRequest>& request,
                               const std::shared_ptr<Flight>& flight) {
  request->cancelRequest();
  land(flight, request.get(), std::string());
}

void AzureBlobUploader::cancelUpload() {
  const Reference self = reference();
  Lock lock(lock_);
  cancelled_ = true;
  const std::shared_ptr<Flight> flight = flight_;
  if (flight == nullptr) {
    return;
  }
  if (flight->starting) {
    flight->cancelWanted = true;
    return;
  }
  const std::shared_ptr<AzureBlobRequest> request = currentRequest_;
  lock.unlock();
  if (flight->isAwaited()) {
    cancel(request, flight);
  }
}
