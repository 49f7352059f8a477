#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/coreref.h"
#include "core/base/mutex.h"
#include "core/files/file_stream.h"
#include "core/text/corestring.h"
#include "upload/azure_blob_request.h"
#include "upload/pending_request.h"

/// Returns the code in the storage service's error document: the text of the first "Code" element behind the first
/// "<Error>", as it stands; empty when there is none. Any thread.
std::string storageErrorCode(std::string_view response);

/// Sends one local file to one blob URL and reports once whether it arrived.
///
/// A file up to 256 MiB goes as a block blob in one request (Put Blob). A larger file goes in blocks of 4 MiB: the
/// first request creates an empty append blob, and the completion of each request starts the next block. Nothing is
/// ever repeated: an append block carries no condition, so a second one would double its bytes. A half-written blob
/// stays where it is.
///
/// Lifetime: reference-counted. Each request holds a reference until it has ended (PendingRequest), so an owner may
/// release its own at any time.
///
/// Threads: every operation may be called on any thread, also from inside the completion function. The lock is never
/// held while a request is started or cancelled or while the completion function runs, because WinHTTP may complete a
/// request inside the call that starts it, on the same thread. An operation therefore prepares a request under the lock
/// and starts it when the lock is released.
///
/// Files: azure_blob_uploader.cpp says what is sent and when the upload has ended; azure_blob_uploader_requests.cpp
/// starts, completes and cancels a request; pending_request.h is the state of one.
class AzureBlobUploader : public CORE::coreref {
 public:
  static constexpr std::uint64_t kMaxPutBlobBytes = std::uint64_t{256} << 20;  ///< a larger file is appended in blocks
  static constexpr std::uint64_t kBlockBytes = std::uint64_t{4} << 20;         ///< of each block but the last
  static constexpr std::uint64_t kMaxBlocks = 50000;                           ///< of an append blob

  /// Gets the uploader and whether the file arrived. Runs on a thread of the HTTP client, inside uploadFile, or inside
  /// cancelUpload.
  using Completion = std::function<void(AzureBlobUploader*, bool)>;

  AzureBlobUploader() = default;

  /// Stores the proxy settings, in the form that HttpRequest takes them; an empty text means not set. Only the first
  /// request of an upload gets them.
  virtual void setProxyConfig(const std::string& proxyServer, const std::string& proxyBypass,
                              const std::string& pacUrl);

  /// Starts the upload.
  ///
  /// \param filePath    UTF-8. The file has at most 209,715,249,999 bytes.
  /// \param url         the blob's URL, UTF-8, with whatever authorisation its query carries.
  /// \param accountKey  base64, or empty: the requests are then not signed.
  /// \param onDone      called exactly once when the upload has started, unless it is cancelled while it appends.
  /// \return true when the first request was started. False when nothing was started: onDone is never called, and the
  ///         reason is in the log unless the uploader was cancelled.
  /// \throws std::filesystem::filesystem_error when the file's size cannot be read, CORE::coreException for a path or
  ///         URL that is not UTF-8, and for lack of memory; nothing was started then either.
  virtual bool uploadFile(const std::string& filePath, const std::string& url, const std::string& accountKey,
                          Completion onDone);

  /// Ends the upload for good; a cancelled uploader starts nothing more. Waits up to ten seconds for the pending
  /// request to close. A cancelled append chain reports nothing. A cancelled Put Blob reports the status that was
  /// received, which without an answer is a failure.
  virtual void cancelUpload();

  /// Returns the storage service's error code ("BlobNotFound") of the last response, of which 64 KiB are kept; empty
  /// when these hold none.
  virtual std::string getStorageErrorCode();

 protected:
  ~AzureBlobUploader() override = default;

 private:
  /// A request that is prepared under the lock and started without it.
  struct PreparedRequest {
    std::shared_ptr<AzureBlobRequest> request;
    std::shared_ptr<PendingRequest> pending;
    std::function<bool(AzureBlobRequest&, HttpCompletion)> send;
  };
  struct ProxyTexts {
    std::string server, bypass, pacUrl;
  };
  /// The file that is sent. All but path and size serve the append path.
  struct SourceFile {
    std::string path;        ///< UTF-8
    std::uint64_t size = 0;  ///< bytes, at the time of uploadFile
    CORE::FileStream stream;
    std::uint64_t bytesSent = 0;                    ///< handed to Append Block requests, the pending one included
    std::shared_ptr<std::vector<std::byte>> block;  ///< shared with the request that sends it
  };

  // What is sent, in azure_blob_uploader.cpp. Each of the three prepares a request, which the caller starts.
  PreparedRequest usePutBlob() REQUIRES(lock_);
  /// Returns nothing when the file cannot be opened, which is logged.
  std::optional<PreparedRequest> useAppendBlock() REQUIRES(lock_);
  PreparedRequest appendNextBlock() REQUIRES(lock_);

  void AzurePutBlobRequestCb(HttpRequest* request, std::string response) EXCLUDES(lock_);
  void AzureAppendBlockRequestCb(HttpRequest* request, std::string response) EXCLUDES(lock_);
  /// Reports a failure after an exception has ended one of these two, unless the end was reported before.
  void finishFailed(UploadStep step, HttpRequest* request) EXCLUDES(lock_);
  /// Stores the last response and closes the file. Returns the completion function, which the caller calls when the
  /// lock is released; empty when it was called before.
  Completion finish(std::int32_t status, std::string response) REQUIRES(lock_);

  // The life of one request, in azure_blob_uploader_requests.cpp.
  std::shared_ptr<PendingRequest> makePending(UploadStep step) REQUIRES(lock_);
  bool start(const PreparedRequest& prepared) EXCLUDES(lock_);
  static void onCompletion(const std::shared_ptr<PendingRequest>& pending, HttpRequest* request, std::string response);
  void handleCompletion(UploadStep step, HttpRequest* request, std::string response) EXCLUDES(lock_);
  void handleEarlyCompletions() EXCLUDES(lock_);
  static void cancel(const std::shared_ptr<AzureBlobRequest>& request, const std::shared_ptr<PendingRequest>& pending);

  CORE::Mutex lock_;
  SourceFile file_ GUARDED_BY(lock_);
  std::string url_ GUARDED_BY(lock_);
  CORE::mstr accountKey_ GUARDED_BY(lock_);  ///< marked secret
  ProxyTexts proxy_ GUARDED_BY(lock_);
  Completion completion_ GUARDED_BY(lock_);  ///< empty once it was called
  std::shared_ptr<AzureBlobRequest> currentRequest_ GUARDED_BY(lock_);
  std::shared_ptr<PendingRequest> pending_ GUARDED_BY(lock_);  ///< the state of currentRequest_
  bool cancelled_ GUARDED_BY(lock_) = false;
  std::string lastResponse_ GUARDED_BY(lock_);
  std::int32_t lastStatusCode_ GUARDED_BY(lock_) = 0;  ///< kept: nobody reads it
  std::int64_t startTime_ GUARDED_BY(lock_) = 0;       ///< seconds since 1970-01-01 UTC; kept: nobody reads it
};
