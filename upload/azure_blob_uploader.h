#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/coreref.h"
#include "core/files/file_stream.h"
#include "core/text/corestring.h"
#include "upload/azure_blob_request.h"

/// The code in the storage service's error document: the text of the first "Code" element behind the first "<Error>",
/// taken as it stands; empty when there is none. Any thread.
std::string storageErrorCode(std::string_view response);

/// Sends one local file to one blob URL and reports once whether it arrived.
///
/// A file up to 256 MiB goes as a block blob in one request (Put Blob); a larger one creates an append blob and follows
/// in blocks of 4 MiB, each started from the completion of the one before. Nothing is ever repeated: an append block
/// carries no condition, so a second one would double its bytes. A half-written blob is left where it is.
///
/// Reference-counted; while a request is in flight its completion holds a reference of its own, so an owner may release
/// its one at any time. Every operation may be called on any thread, also from inside the completion function. The lock
/// is never held while a request is started or cancelled or while the completion function runs: WinHTTP may complete a
/// request inside the call that starts it, on the same thread.
class AzureBlobUploader : public CORE::coreref {
 public:
  /// Gets the uploader and whether the file arrived. Runs on a thread of the HTTP client, inside uploadFile, or inside
  /// cancelUpload.
  using Completion = std::function<void(AzureBlobUploader*, bool)>;

  AzureBlobUploader() = default;

  /// Texts as HttpRequest takes them; empty means not set. Only the first request of an upload is handed them.
  virtual void setProxyConfig(const std::string& proxyServer, const std::string& proxyBypass,
                              const std::string& pacUrl);

  /// Starts the upload. True: the first request was started, and the completion function is called exactly once, unless
  /// the upload is cancelled while it appends. False: nothing was started, the function is never called, and (but for a
  /// cancelled uploader) the reason is in the log.
  ///
  /// \param filePath    UTF-8. At most 209,715,249,999 bytes.
  /// \param url         the blob's URL, UTF-8, with whatever authorisation its query carries.
  /// \param accountKey  base64, or empty: the requests are then not signed.
  /// \throws std::filesystem::filesystem_error when the file's size cannot be read, CORE::coreException for a path or
  ///         URL that is not UTF-8, and for lack of memory; nothing was started then either.
  virtual bool uploadFile(const std::string& filePath, const std::string& url, const std::string& accountKey,
                          Completion onDone);

  /// Ends the upload for good; an uploader that was cancelled starts nothing more. Waits up to ten seconds for the
  /// request in flight to close. A cancelled append chain reports nothing; a cancelled Put Blob reports the status that
  /// was received, which without an answer is a failure.
  virtual void cancelUpload();

  /// The storage service's error code ("BlobNotFound") from the last response, empty when it holds none.
  virtual std::string getStorageErrorCode();

 protected:
  ~AzureBlobUploader() override = default;

 private:
  enum class Step { kPutBlob, kAppendBlock };
  class Flight;
  /// A request that is ready to go, and what its start needs while the lock is not held.
  struct Launch {
    std::shared_ptr<AzureBlobRequest> request;
    std::string url;
    std::shared_ptr<Flight> flight;
  };
  struct Releaser {
    void operator()(AzureBlobUploader* uploader) const { uploader->release(); }
  };
  using Reference = std::unique_ptr<AzureBlobUploader, Releaser>;
  using Lock = std::unique_lock<std::mutex>;

  Reference reference();

  // Entered with the lock held; it is released before the request is started.
  bool usePutBlob(Lock& lock);
  bool useAppendBlock(Lock& lock);
  bool appendNextBlock(Lock& lock);

  void AzurePutBlobRequestCb(HttpRequest* request, std::string response);
  void AzureAppendBlockRequestCb(HttpRequest* request, std::string response);
  void finish(Lock& lock, bool succeeded, std::int32_t status, std::string response);
  void finishFailed(Step step, HttpRequest* request);

  // The life of one request, in azure_blob_uploader_flight.cpp.
  Launch board(Step step);
  bool start(const Launch& launch, const std::function<bool(HttpCompletion)>& send);
  static void arrive(const std::shared_ptr<Flight>& flight, HttpRequest* request, std::string response);
  void land(Step step, HttpRequest* request, std::string response);
  void settle();
  static void cancel(const std::shared_ptr<AzureBlobRequest>& request, const std::shared_ptr<Flight>& flight);

  std::uint64_t putBlobLimit_ = 268435456;  ///< bytes
  std::uint64_t chunkSize_ = 4194304;       ///< bytes
  std::uint64_t maxChunkCount_ = 50000;
  std::string filePath_;
  std::string url_;
  CORE::mstr accountKey_;  ///< marked secret
  Completion completion_;  ///< empty once it was called
  std::string proxyServer_;
  std::string proxyBypass_;
  std::string pacUrl_;
  CORE::FileStream fileStream_;
  std::uint64_t fileSize_ = 0;
  std::uint64_t bytesSent_ = 0;  ///< handed to Append Block requests, the one in flight included
  std::shared_ptr<std::vector<std::byte>> chunkBuffer_;  ///< shared with the block in flight
  std::shared_ptr<AzureBlobRequest> currentRequest_;
  bool cancelled_ = false;
  std::mutex lock_;  ///< guards every member
  std::int32_t lastStatusCode_ = 0;
  std::string lastResponse_;
  std::int64_t startTime_ = 0;  ///< seconds since 1970-01-01 UTC

  std::shared_ptr<Flight> flight_;  ///< of the current request
};
