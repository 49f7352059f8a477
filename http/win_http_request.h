#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/format/format.h"
#include "core/log/log.h"
#include "http/exchange_handles.h"
#include "http/http_request.h"
#include "http/notification_queue.h"
#include "http/proxy/request_proxy.h"
#include "http/request_body.h"
#include "http/request_lock.h"
#include "http/request_target.h"
#include "http/request_timeouts.h"
#include "http/response.h"
#include "http/trust/certificate_gate.h"
#include "platform/handle.h"

/// HttpRequest over WinHTTP in asynchronous mode: one session, connection and request handle for one exchange.
///
/// It is put together of parts: the target (URL and request line), the proxy, the body, the certificate gate, the time
/// limits, the handles, the queue of notifications, the response. Each part has a header of its own, and its own lock.
/// What the request itself does stands in five files:
/// - win_http_request.cpp: it is configured, waited for, cancelled and read;
/// - win_http_start.cpp: performAsync, up to the send;
/// - win_http_session.cpp: the three handles are opened and configured;
/// - win_http_notifications.cpp: from WinHTTP's notifications to the steps, and to the end of the exchange;
/// - win_http_steps.cpp: the steps, which send the body and receive the response.
///
/// States: configured, performing, completed or cancelled. The owner's thread configures and starts it. Notifications
/// come on WinHTTP's threads, or inside the starting call; each is copied, queued and handled one at a time. No lock is
/// held while WinHTTP or the completion is called, but for the request's own one, lock() and unlock(), which the
/// completion runs under.
///
/// Every object has shared owners. One of them is the table of exchanges in flight, from the send to HANDLE_CLOSING,
/// the last notification. So the object lives until its completion has returned, even when the completion drops it.
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

  /// Lends the buffer that the next putAsync is given, which is then not copied: it stays as it is until the request's
  /// completion. The request keeps its owner for as long as WinHTTP may read it, cancelled or not. Call it before the
  /// request is started.
  void lendBody(std::shared_ptr<const void> owner) { body_.lend(std::move(owner)); }

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
  void ignoreCertErrors() override { gate_.settings().ignoreAllErrors = true; }
  void ignoreCertNameMismatch() override { gate_.settings().ignoreName = true; }
  void setUserValue(std::uint64_t value) override { userValue_ = value; }
  void enableRevocationCheck() override { gate_.settings().checkRevocation = true; }
  void setHeaders(const HttpMap& headers) override { headers_ = headers; }
  void setQueryParameters(const HttpMap& parameters) override { queryParameters_ = parameters; }
  void addThumbprint(const std::string& thumbprint) override { gate_.settings().pins.push_back(thumbprint); }
  void setThumbprints(const std::vector<std::string>& thumbprints) override { gate_.settings().pins = thumbprints; }
  void setThumbprintsFromCerts(const std::vector<platform::NativeHandle>& certificates) override;
  void setTimeout(std::uint32_t seconds) override { timeouts_.setTotalSeconds(seconds); }
  void setTimeouts(std::uint32_t resolve, std::uint32_t connect, std::uint32_t send, std::uint32_t receive) override;
  void setProxy(const std::wstring& proxy) override { proxy_.servers = proxy; }
  void setProxy(const std::string& proxy) override;
  void setProxyBypass(const std::wstring& bypass) override { proxy_.bypass = bypass; }
  void setProxyBypass(const std::string& bypass) override;
  void setProxyCredentials(const std::wstring& user, const std::wstring& password) override;
  void setProxyCredentials(const std::string& user, const std::wstring& password) override;
  void setPacUrl(const std::wstring& url) override { proxy_.pacUrl = url; }
  void setPacUrl(const std::string& url) override;
  bool cancelRequest() override;
  std::uint32_t getResponseCode() override;
  void getResponseHeaders(std::string& headers) override;
  std::wstring getUrl() override { return target_.url(); }
  void finalizeHeaders() override {}
  bool isSuccess() override { return response_.isSuccess(); }

  /// The lock that the completion runs under.
  void lock() override { completionMutex_.lock(); }
  void unlock() override { completionMutex_.unlock(); }

  /// As setTimeouts, in milliseconds and without clamping.
  void setTimeoutsMs(std::uint32_t resolve, std::uint32_t connect, std::uint32_t send, std::uint32_t receive);

  // For requests that another request makes.

  /// Lets the request go to "http" URLs as well.
  void allowPlainHttp() { plainHttpAllowed_ = true; }
  /// Makes the request a preflight probe: it takes its proxy as given, runs no preflight of its own, captures the
  /// server's certificates before data leaves, and reports its own abort at TRACE only.
  void actAsProbe() { gate_.actAsProbe(); }
  /// Takes over another request's proxy, credentials and PAC URL.
  void setRequestProxy(const RequestProxy& proxy) { proxy_ = proxy; }
  /// Takes over another request's time limits.
  void setRequestTimeouts(const RequestTimeouts& timeouts) { timeouts_ = timeouts; }
  /// Returns the certificates that the server showed last; null when none were captured. Any thread: a probe that was
  /// given up may still be at work.
  std::shared_ptr<const ServerCertificates> capturedCertificates() const { return gate_.captured(); }

  /// Starts the exchange.
  /// \return true when the completion will come, or has come already on this thread; false when nothing is pending:
  ///         the reason is logged, and the completion never comes.
  /// \throws CORE::coreException for texts that are not UTF-8.
  /// \throws std::filesystem::filesystem_error when the size of the upload file cannot be read. After either exception,
  ///         too, nothing is pending.
  bool performAsync(HttpMethod method, const std::string& url, HttpCompletion completion);

  /// Starts the exchange and waits for its end, at most as long as the total time limit; at the limit it is given up.
  /// \param path  names the file to upload when it is not empty; otherwise `body` is uploaded when that is not empty.
  /// \return true when the end was seen.
  bool performSync(HttpMethod method, const std::string& url, const std::string& body, const std::string& path);

  /// The status callback of every WinHTTP session of the process. Never throws.
  /// \param context  a number of the in-flight table; one that is no longer in flight is ignored.
  /// Source: WINHTTP_STATUS_CALLBACK.
  static void WinHttpCallback(platform::NativeHandle handle, std::uintptr_t context, std::uint32_t status,
                              void* information, std::uint32_t informationLength);

  /// Splits a URL for WinHttpConnect and WinHttpOpenRequest: see crackUrl. kept: the requests use that one.
  /// \param scheme  the platform's number (1 HTTP, 2 HTTPS).
  /// \param extra   what follows the path from "?" or "#" on.
  /// \return false when the platform cannot parse it; the outputs are empty then.
  static bool CrackURL(const std::wstring& url, std::uint32_t& scheme, std::wstring& host, std::uint16_t& port,
                       std::wstring& path, std::wstring& extra, bool plainHttpDefault);

 protected:
  // For derived requests, from finalizeHeaders on.
  const std::wstring& verb() const { return verb_; }
  const std::wstring& hostName() const { return target_.host(); }
  /// The path of the URL as it stands, without its query.
  const std::wstring& urlPath() const { return target_.path(); }
  HttpMap& headers() { return headers_; }
  /// The URL's own query parameters, undecoded, and the set ones in one list.
  QueryList canonicalQuery() const { return target_.canonicalQuery(queryParameters_); }
  /// Bytes of the request body.
  std::uint64_t bodyLength() const { return body_.length(); }

  /// Called before the session is opened. False refuses the request.
  virtual bool preflightCertVerification();
  /// Called inside the sending-request notification, the last moment before data leaves. False ends the exchange.
  virtual bool SendingRequest();

 private:
  // win_http_request.cpp
  bool finishSync(bool performed, std::string& response);
  bool hasWholeBody(std::uint64_t size);
  void setContentType(ContentType type);
  static void Synchronize(HttpRequest* request, const std::string& body);

  // win_http_start.cpp
  bool parseTarget(const std::string& url);
  bool start(HttpMethod method);
  bool endFailedStart();
  void chooseProxy();
  bool prepareBody(HttpMethod method);
  bool send();

  // win_http_session.cpp
  bool openSession();
  bool configureSession(const std::array<int, 4>& limits);
  bool openConnection();
  bool openRequest();
  bool applySecurity();
  bool forbidRedirects(HttpMethod method);
  bool applyProxyCredentials();

  // win_http_notifications.cpp
  void RequestCallback(std::uint32_t status, const void* information, std::uint32_t informationLength) noexcept;
  void checkBeforeSending() noexcept;
  bool wasChecked() const;
  void handleNotifications() noexcept;
  void runStep(const Notification& notification) noexcept;
  bool step(const Notification& notification);
  void logRequestError(const Notification& notification);
  void onHandleClosing() noexcept;
  void callCompletion() noexcept;
  void signalCancelled() noexcept;

  // win_http_steps.cpp: each step gives false to end the exchange.
  bool continueUpload();
  bool writeComplete(std::uint32_t bytes);
  bool UploadData();
  bool ReceiveResponse();
  bool CheckHeaders();
  bool readRawHeaders(platform::NativeHandle request);
  bool QueryData();
  bool DataAvailable(std::uint32_t bytes);
  bool endOfBody();
  bool readComplete(std::uint32_t bytes);
  bool stepWithoutHandle(CORE::LogLevel level, CORE::FormatString<wchar_t> text);

  /// Whether somebody has closed the exchange; a step that finds it so ends quietly.
  bool hasEnded() const { return handles_.outcome() != ExchangeHandles::Outcome::kOpen; }
  bool isCompleted() const { return handles_.outcome() == ExchangeHandles::Outcome::kFinished; }

  RequestTarget target_;
  std::wstring verb_;
  RequestProxy proxy_;
  RequestBody body_;
  HttpMap headers_;
  HttpMap queryParameters_;
  std::uint64_t userValue_ = 0;  ///< kept: nobody reads it
  CertificateGate gate_;
  bool plainHttpAllowed_ = false;
  RequestTimeouts timeouts_;
  HttpCompletion completion_;  ///< the starter's until the send, then that of the caller who gets takeOutcome()
  Response response_;
  platform::KernelHandle syncEvent_;    ///< set by the end of the exchange, for performSync
  platform::KernelHandle cancelEvent_;  ///< set by HANDLE_CLOSING, for cancelRequest
  ExchangeHandles handles_;
  NotificationQueue notifications_;
  std::mutex completionMutex_;  ///< lock() and unlock()
};
