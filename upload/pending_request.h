#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "core/base/coreref.h"

class AzureBlobUploader;

/// What a request of an upload does. Its end goes to the handler of that step.
enum class UploadStep {
  kPutBlob,      ///< sends the whole file; ends in AzurePutBlobRequestCb
  kAppendBlock,  ///< creates the append blob or appends a block; ends in AzureAppendBlockRequestCb
};

/// The state of one request of an upload, from its preparation until it has ended. It holds the reference that keeps
/// the uploader alive until then.
///
/// Three parties may end a request: its completion, a start that failed, and a cancellation. Each calls
/// takeReference(); only the first one gets the reference, and that one alone acts on the end. So a request ends once,
/// however often WinHTTP completes it, and a cancelled request that never completes does not keep the uploader.
class PendingRequest {
 public:
  /// Call it on the thread that starts the request afterwards.
  explicit PendingRequest(UploadStep step) : step_(step), starter_(std::this_thread::get_id()) {}
  PendingRequest(const PendingRequest&) = delete;
  PendingRequest& operator=(const PendingRequest&) = delete;
  /// Releases a reference that nobody took.
  ~PendingRequest();

  UploadStep step() const { return step_; }

  /// Adds a reference to the uploader and keeps it. Call it once, before the request is started.
  void holdReference(AzureBlobUploader& uploader);
  /// False before holdReference() and once somebody has taken the reference. Any thread.
  bool holdsReference() const { return uploader_.load() != nullptr; }
  /// Ends the request: hands the reference over, and null to everybody who comes later. Any thread.
  CORE::Reference<AzureBlobUploader> takeReference();

  /// True until markStarted(); it stays true when the start has failed. Any thread.
  bool isBeingStarted() const { return starter_.load() != std::thread::id(); }
  /// The same, and the start runs on the calling thread: the caller is inside it.
  bool isBeingStartedHere() const { return starter_.load() == std::this_thread::get_id(); }
  /// Says that the starting call has returned. Call it under the uploader's lock.
  void markStarted() { starter_.store(std::thread::id()); }

  /// Keeps the response of a completion that came inside the starting call. A second one is dropped. Call it on the
  /// starting thread, before markStarted().
  void setEarlyResponse(std::string response);
  /// Read it on the starting thread, or on any thread once isBeingStarted() is false.
  bool hasEarlyResponse() const { return earlyResponse_.has_value(); }
  /// Hands the early response over. Call it once, after takeReference() has given the reference.
  std::string takeEarlyResponse() { return std::move(*earlyResponse_); }

 private:
  const UploadStep step_;
  std::atomic<AzureBlobUploader*> uploader_{nullptr};  ///< owns a reference while it is not null
  std::atomic<std::thread::id> starter_;               ///< no thread once the starting call has returned
  std::optional<std::string> earlyResponse_;
};
