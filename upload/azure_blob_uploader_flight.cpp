#include <atomic>
#include <optional>
#include <thread>
#include <utility>

#include "core/base/exception.h"
#include "core/log/log.h"
#include "upload/azure_blob_uploader.h"

/// One request on its way, and the reference to the uploader that its completion holds. Whoever claims the reference
/// ends the flight: the completion, a start that failed, or a cancellation. So each flight ends once, however often a
/// request completes, and a request that is never heard of again keeps no uploader once it was cancelled.
class AzureBlobUploader::Flight {
 public:
  /// On the thread that is going to start it.
  explicit Flight(Step flown) : step(flown), starter(std::this_thread::get_id()) {}
  Flight(const Flight&) = delete;
  Flight& operator=(const Flight&) = delete;
  ~Flight() { claim(); }

  void await(AzureBlobUploader& uploader) { uploader_.store(uploader.reference().release()); }
  bool isAwaited() const { return uploader_.load() != nullptr; }
  /// Null when somebody else was first.
  Reference claim() { return Reference(uploader_.exchange(nullptr)); }

  bool isBeingStarted() const { return starter.load() != std::thread::id(); }
  bool isBeingStartedHere() const { return starter.load() == std::this_thread::get_id(); }

  const Step step;
  std::atomic<std::thread::id> starter;  ///< until the start has returned; cleared under the uploader's lock
  bool cancelWanted = false;             ///< guarded by the uploader's lock
  std::optional<std::string> early;      ///< the response, when it came inside the start; the starter's until then

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

/// Starts a request without the lock; true when its completion has come or will come. What came inside the starting
/// call itself waits for settle(). A cancellation that came while there was nothing to cancel yet is made up for here.
bool AzureBlobUploader::start(const Launch& launch, const std::function<bool(HttpCompletion)>& send) {
  Flight& flight = *launch.flight;
  flight.await(*this);
  try {
    const bool started = send([kept = launch.flight](HttpRequest* request, std::string response) {
      arrive(kept, request, std::move(response));
    });
    if (!started && !flight.early) {
      return !flight.claim();
    }
  } catch (...) {
    if (!flight.early && flight.claim()) {
      throw;
    }
    CORE::log(CORE::kError, L"AzureBlobUploader::start(): %s", CORE::currentExceptionText());
  }
  Lock lock(lock_);
  flight.starter = std::thread::id();
  const bool cancelNow = flight.cancelWanted && !flight.early;
  lock.unlock();
  if (cancelNow) {
    cancel(launch.request, launch.flight);
  }
  return true;
}

/// The completion of a request. One that comes inside the starting call is only noted: handling it there would nest
/// the whole chain of blocks, one inside the other.
void AzureBlobUploader::arrive(const std::shared_ptr<Flight>& flight, HttpRequest* request, std::string response) {
  if (flight->isBeingStartedHere()) {
    if (!flight->early) {
      flight->early = std::move(response);
    }
    return;
  }
  if (const Reference self = flight->claim()) {
    self->land(flight->step, request, std::move(response));
    self->settle();
  }
}

/// Handles the end of a flight that the caller has claimed and keeps this object through.
void AzureBlobUploader::land(Step step, HttpRequest* request, std::string response) {
  const bool isPutBlob = step == Step::kPutBlob;
  const bool handled = guarded(isPutBlob, [&] {
    if (isPutBlob) {
      AzurePutBlobRequestCb(request, std::move(response));
    } else {
      AzureAppendBlockRequestCb(request, std::move(response));
    }
  });
  if (!handled) {
    guarded(isPutBlob, [&] { finishFailed(step, request); });
  }
}

/// Handles what has ended inside its own start, block after block, until a request is really on its way.
void AzureBlobUploader::settle() {
  for (;;) {
    Lock lock(lock_);
    const std::shared_ptr<Flight> flight = flight_;
    const std::shared_ptr<AzureBlobRequest> request = currentRequest_;
    const bool ended = !flight->isBeingStarted() && flight->early;
    lock.unlock();
    if (!ended || !flight->claim()) {
      return;
    }
    land(flight->step, request.get(), std::move(*flight->early));
  }
}

/// A cancelled request does not complete any more, so its flight ends here: a Put Blob with the status it has, an
/// append chain silently.
void AzureBlobUploader::cancel(const std::shared_ptr<AzureBlobRequest>& request,
                               const std::shared_ptr<Flight>& flight) {
  request->cancelRequest();
  if (const Reference self = flight->claim()) {
    self->land(flight->step, request.get(), std::string());
  }
}

void AzureBlobUploader::cancelUpload() {
  const Reference self = reference();
  Lock lock(lock_);
  cancelled_ = true;
  const std::shared_ptr<Flight> flight = flight_;
  const std::shared_ptr<AzureBlobRequest> request = currentRequest_;
  if (flight == nullptr) {
    return;
  }
  if (flight->isBeingStarted()) {
    flight->cancelWanted = true;
    return;
  }
  lock.unlock();
  if (flight->isAwaited()) {
    cancel(request, flight);
  }
}
