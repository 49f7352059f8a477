#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/files/file_stream.h"
#include "core/text/corestring.h"
#include "http/exchange_handles.h"
#include "http/http_request.h"
#include "http/notification_queue.h"
#include "http/request_lock.h"
#include "http/request_timeouts.h"
#include "http/trust/server_verification.h"
#include "platform/handle.h"

/// Names and values of a query, ordered byte-wise by name; a name may repeat, its values then keep their order.
using QueryList = std::vector<std::pair<std::string, std::string>>;

/// HttpRequest over WinHTTP in asynchronous mode: one session, connection and request for one exchange.
///
/// States: configured, performing, completed or cancelled; an object serves one exchange. The configuring operations
/// and the start belong to the owner's thread. Notifications come on WinHTTP's workers, or inside the starting call;
/// each is copied, queued and handled one at a time, without any lock held while WinHTTP or the completion is called
/// (but for the request's own lock, lock() and unlock(), which the completion runs under).
///
/// Every object has shared owners. One of them is the table of exchanges in flight, from the send to HANDLE_CLOSING,
/// the last notification; so the object lives until its completion has returned, even when the completion drops it.
class WinHttpRequest : public HttpRequest, public RequestLock, public std::enable_shared_from_this<WinHttpRequest> {
 protected:
  /// Only this class and those derived from it can name the key, so nobody else makes an object without a shared owner.
  struct CreateKey {
    explicit CreateKey() = default;
  };

 public:
  static std::shared_ptr<WinHttpRequest> create();

  explicit WinHttpRequest(CreateKey) {}
  WinHttpRequest(const WinHttpRequest&) = delete;
  WinHttpRequest& operator=(const WinHttpRequest&) = delete;
  virtual ~WinHttpRequest() = default;

  /// The buffer that the next putAsync is given is not copied: it stays as it is until the request's completion, and
  /// the request keeps its owner for as long as WinHTTP may read it, cancelled or not. Call it before the request is
  /// started.
  void lendBody(std::shared_ptr<const void> owner) { lender_ = std::move(owner); }

  bool get(const std::string& url, std::string& response) override;
  bool post(ContentType type, const std::string& url, const std::string& body, std::string& response) override;
  bool put(ContentType type, const std::string& url, const std::string& body, std::string& response) override;
  bool putFile(ContentType type, const std::string& url, const std::string& path, std::string& response) override;
  bool deleteRequest(const std::string& url, std::string& response) override;
  bool getAsync(const std::string& url, HttpCompletion completion) override;
  bool postAsync(ContentType type, const std::string& url, const std::string& body, HttpCompletion completion) override;
  bool putAsync(ContentType type, const std::string& url, std::span<const std::byte> buffer, std::size_t length,
                HttpCompletion completion) override;
  bool putStringAsync(ContentType type, const std::string& url, const std::string& body,
                      HttpCompletion completion) override;
  bool putFileAsync(ContentType type, const std::string& url, const std::string& path,
                    HttpCompletion completion) override;
  void ignoreCertErrors() override { trust_.ignoreAllErrors = true; }
  void ignoreCertNameMismatch() override { trust_.ignoreName = true; }
  void setUserValue(std::uint64_t value) override { userValue_ = value; }
  void enableRevocationCheck() override { trust_.checkRevocation = true; }
  void setHeaders(const HttpMap& headers) override { headers_ = headers; }
  void setQueryParameters(const HttpMap& parameters) override { queryParameters_ = parameters; }
  void addThumbprint(const std::string& thumbprint) override { trust_.pins.push_back(thumbprint); }
  void setThumbprints(const std::vector<std::string>& thumbprints) override { trust_.pins = thumbprints; }
  void setThumbprintsFromCerts(const std::vector<platform::NativeHandle>& certificates) override;
  void setTimeout(std::uint32_t seconds) override { timeouts_.setTotalSeconds(seconds); }
  void setTimeouts(std::uint32_t resolve, std::uint32_t connect, std::uint32_t send, std::uint32_t receive) override;
  void setProxy(const std::wstring& proxy) override { proxy_ = proxy; }
  void setProxy(const std::string& proxy) override;
  void setProxyBypass(const std::wstring& bypass) override { proxyBypass_ = bypass; }
  void setProxyBypass(const std::string& bypass) override;
  void setProxyCredentials(const std::wstring& user, const std::wstring& password) override;
  void setProxyCredentials(const std::string& user, const std::wstring& password) override;
  void setPacUrl(const std::wstring& url) override { pacUrl_ = url; }
  void setPacUrl(const std::string& url) override;
  bool cancelRequest() override;
  std::uint32_t getResponseCode() override;
  void getResponseHeaders(std::string& headers) override;
  std::wstring getUrl() override { return url_; }
  void finalizeHeaders() override {}
  bool isSuccess() override;

  /// The lock that the completion runs under.
  void lock() override { completionMutex_.lock(); }
  void unlock() override { completionMutex_.unlock(); }

  /// As setTimeouts, in milliseconds and without clamping.
  void setTimeoutsMs(std::uint32_t resolve, std::uint32_t connect, std::uint32_t send, std::uint32_t receive);
  /// Lets the request go to "http" URLs as well, for downloads that prove themselves (CRLs).
  void allowPlainHttp() { plainHttpAllowed_ = true; }
  /// Makes the request a preflight probe: it takes its proxy as given, runs no preflight of its own, watches the
  /// sending-request notification and reports its own abort at TRACE only.
  void actAsProbe() { isProbe_ = true; }

  /// Starts the exchange. True: the completion will come, or has come already on this thread. False: nothing is
  /// pending, the reason is logged, and the completion never comes. \throws CORE::coreException for texts that are not
  /// UTF-8, std::filesystem::filesystem_error when the size of the
  ///         upload file cannot be read; then too nothing is pending.
  bool performAsync(HttpMethod method, const std::string& url, HttpCompletion completion);

  /// Starts the exchange and waits for its end, at most as long as the total time limit; at the limit it is given up.
  /// A non-empty `path` names the file to upload, else a non-empty `body` is uploaded. True when the end was seen.
  bool performSync(HttpMethod method, const std::string& url, const std::string& body, const std::string& path);

  /// The status callback of every WinHTTP session of the process; `context` is a number of the in-flight table. Never
  /// throws; a context that is no longer in flight is ignored.
  /// Source: WINHTTP_STATUS_CALLBACK.
  static void WinHttpCallback(platform::NativeHandle handle, std::uintptr_t context, std::uint32_t status,
                              void* information, std::uint32_t informationLength);

  /// Splits a URL for WinHttpConnect and WinHttpOpenRequest; one without "://" gets the default scheme, HTTPS or plain
  /// HTTP. `scheme` is the platform's number (1 HTTP, 2 HTTPS), `extra` what follows the path from "?" or "#" on. False
  /// when the platform cannot parse it: logged, and the outputs are empty.
  /// Source: WinHttpCrackUrl.
  static bool CrackURL(const std::wstring& url, std::uint32_t& scheme, std::wstring& host, std::uint16_t& port,
                       std::wstring& path, std::wstring& extra, bool plainHttpDefault);

 protected:
  // For derived requests, from finalizeHeaders on.
  const std::wstring& verb() const { return verb_; }
  const std::wstring& hostName() const { return host_; }
  /// The path of the URL as it stands, without its query.
  const std::wstring& urlPath() const { return path_; }
  HttpMap& headers() { return headers_; }
  /// The URL's own query parameters, undecoded, and the set ones in one list.
  QueryList canonicalQuery() const;
  /// Bytes of the request body.
  std::uint64_t bodyLength() const { return totalLength_; }

  /// Called before the session is opened. False refuses the request.
  virtual bool preflightCertVerification();
  /// Called inside the sending-request notification, the last moment before data leaves. False ends the exchange.
  virtual bool SendingRequest();

 private:
  bool finishSync(bool performed, std::string& response);
  void setContentType(ContentType type);
  void setBody(std::span<const std::byte> body);
  static void Synchronize(HttpRequest* request, const std::string& body);

  bool start(HttpMethod method, std::uint32_t scheme, std::uint16_t port);
  bool concludeFailedStart();
  bool parseTarget(const std::string& url, std::uint32_t& scheme, std::uint16_t& port);
  void chooseProxy();
  bool openSession();
  bool configureSession(const std::array<int, 4>& limits);
  std::uint32_t notificationMask() const;
  bool openConnection(std::uint16_t port);
  bool openRequest(bool secure);
  bool applySecurity();
  bool applyProxyCredentials();
  bool prepareBody(HttpMethod method);
  bool prepareFile();
  bool send();

  std::shared_ptr<const ServerCertificates> probeServer();
  void handProxyTo(WinHttpRequest& request) const;
  bool verifyPreflight(const ServerVerification& verification);
  bool checkPreflightRevocation(const ServerVerification& verification, bool untrustedRoot) const;
  bool downloadCrl(const std::string& url, std::string& body) const;
  std::shared_ptr<const ServerCertificates> captureServer();
  bool matchesPreflight(const ServerVerification& verification) const;
  bool verifyLive(const ServerVerification& verification) const;

  void RequestCallback(std::uint32_t status, const void* information, std::uint32_t informationLength) noexcept;
  void watchSending() noexcept;
  void drain() noexcept;
  void runStep(const Notification& event) noexcept;
  bool step(const Notification& event);
  bool continueUpload();
  bool writeComplete(std::uint32_t bytes);
  bool requestError(const Notification& event);
  bool UploadData();
  bool ReceiveResponse();
  bool CheckHeaders();
  bool readRawHeaders(platform::NativeHandle request);
  bool QueryData();
  bool DataAvailable(std::uint32_t bytes);
  bool readComplete(std::uint32_t bytes);
  void concludeClosing() noexcept;
  void deliver() noexcept;
  void signalCancelled() noexcept;
  void closeUpload() noexcept;
  /// True when the exchange is over and its handles are gone; a step that finds it so ends quietly.
  bool isDecided() const { return handles_.outcome() != ExchangeHandles::Outcome::kOpen; }
  bool isCompleted() const { return handles_.outcome() == ExchangeHandles::Outcome::kFinished; }

  std::wstring url_;
  std::wstring host_;
  std::wstring path_;
  std::wstring extra_;
  std::wstring verb_;
  std::wstring proxy_;
  std::wstring proxyBypass_;
  std::wstring proxyUser_;
  CORE::wstr proxyPassword_;
  std::wstring pacUrl_;
  std::vector<std::byte> body_;
  std::span<const std::byte> outgoing_;  ///< the body in memory: body_, or what was lent
  std::shared_ptr<const void> lender_;
  std::string filePath_;
  HttpMap headers_;
  HttpMap queryParameters_;
  std::uint64_t userValue_ = 0;
  TrustSettings trust_;
  bool plainHttpAllowed_ = false;
  bool isProbe_ = false;
  RequestTimeouts timeouts_;
  std::uint32_t maxRequestLength_ = 0xFFFFFFFF;
  HttpCompletion completion_;

  std::uint32_t totalLength_ = 0;
  std::uint32_t bytesSent_ = 0;
  std::vector<std::byte> chunk_;
  std::vector<std::byte> readBuffer_;
  std::mutex streamMutex_;
  CORE::FileStream stream_;  ///< guarded by streamMutex_

  std::atomic<std::uint32_t> statusCode_{0};
  std::mutex resultMutex_;
  std::string responseHeaders_;  ///< guarded by resultMutex_
  std::string responseBody_;     ///< guarded by resultMutex_
  /// What the server showed last; guarded by resultMutex_.
  std::shared_ptr<const ServerCertificates> server_;
  std::vector<BinaryThumbprint> preflightThumbprints_;  ///< written before the send, read by its notifications
  std::atomic<bool> chainVerified_{false};

  platform::KernelHandle syncEvent_;
  platform::KernelHandle cancelEvent_;
  ExchangeHandles handles_;
  NotificationQueue queue_;
  std::mutex completionMutex_;
};
