#pragma once

#include "platform/winhttp.h"
#include "tests/sim/certificates.h"
#include "tests/sim/http_exchange.h"
#include "tests/sim/kernel.h"

namespace sim {

/// Where proxies can be found. An empty text is absent; a PAC file that is not listed cannot be downloaded.
struct ProxySources {
  IeProxySettings ie;
  std::wstring wpadUrl;  ///< what auto-detection finds
  ProxyInfo winHttpDefault;
  std::map<std::wstring, std::function<std::wstring(const std::wstring& target)>>
      pacFiles;  ///< by URL; each returns the proxy
  /// How each WinHttpGetProxyForUrl was made: user agent, access type and flags of its session, automatic logon.
  std::vector<std::tuple<std::wstring, std::uint32_t, std::uint32_t, bool>> pacCalls = {};
};

struct HttpHandle;
struct HttpRequestHandle;
struct HttpPending;

/// WinHTTP in front of a scripted server. As on Windows, only a successful send binds the context, the callback's mask
/// is respected, HANDLE_CLOSING is the last notification of a request, and the program's buffers are used when a call
/// completes, not when it is made.
class WinHttp : public platform::WinHttp {
 public:
  using Server = std::function<HttpReply(const HttpExchange&)>;
  using EarlyServer = std::function<std::optional<HttpReply>(const HttpExchange&)>;
  using Handshake = std::function<ServerChain(const HttpExchange&)>;

  WinHttp(Kernel& kernel, Certificates& certificates) : kernel_(kernel), certificates_(certificates) {}

  /// Sets what answers once the whole body has arrived, on the thread that completes the call. Without it: 200.
  void onRequest(Server server) { kernel_.set(server_, std::move(server)); }
  /// Sets what is called when the headers have arrived. A reply that it returns is the answer, before the body comes.
  void onHeaders(EarlyServer server) { kernel_.set(headersServer_, std::move(server)); }
  /// Sets what an HTTPS server shows of itself. Without it: "leaf" and "root", with nothing wrong.
  void onHandshake(Handshake server) { kernel_.set(handshake_, std::move(server)); }

  ProxySources proxies;
  /// What a named proxy wants for an HTTPS request; others get 407. SENDING_REQUEST then comes for the tunnel as well,
  /// before there is a certificate.
  std::optional<std::pair<std::wstring, std::wstring>> proxyCredentials;
  bool reportsSending = true;    ///< SENDING_REQUEST comes
  bool knowsChainOption = true;  ///< WINHTTP_OPTION_SERVER_CERT_CHAIN_CONTEXT, which only newer systems know

  Delivery delivery = Delivery::kWorker;
  std::uint32_t seed = 1;  ///< of Delivery::kMixed
  OnClose onClose = OnClose::kCancelled;
  bool closingInline = false;              ///< HANDLE_CLOSING comes inside the closing call, whatever completions do
  bool bindContextOfFailedSend = false;    ///< some systems do that
  std::chrono::milliseconds lateDelay{0};  ///< real time after which a late completion comes; zero: by release()
  std::uint64_t storeBodyUpTo = 16u << 20;

  /// Delivers everything that is held (kLate, HttpReply::hold), and holds nothing from now on.
  void release() { kernel_.set(released_, true); }
  /// Waits until something is being held.
  void waitUntilHeld();

  std::vector<HttpExchange> requests() const;      ///< all, in the order of their opening
  std::vector<HttpExchange> sentRequests() const;  ///< those whose send succeeded
  /// Waits until nothing is left to deliver.
  void waitUntilIdle();
  /// Drops what is undelivered and ends the workers; the destructor of the simulation calls it.
  void endAll() { kernel_.set(ended_, true); }

  Result<InternetHandle> WinHttpOpen(const std::wstring& userAgent, std::uint32_t accessType, const std::wstring& proxy,
                                     const std::wstring& bypass, std::uint32_t flags) override;
  Status WinHttpSetTimeouts(NativeHandle session, int resolve, int connect, int send, int receive) override;
  Status WinHttpSetStatusCallback(NativeHandle handle, StatusCallback callback, std::uint32_t mask) override;
  Result<InternetHandle> WinHttpConnect(NativeHandle session, const std::wstring& host, std::uint16_t port) override;
  Result<InternetHandle> WinHttpOpenRequest(NativeHandle connection, const std::wstring& verb, const std::wstring& path,
                                            std::uint32_t flags) override;
  Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, std::uint32_t value) override;
  Status WinHttpSetOption(NativeHandle handle, std::uint32_t option, const std::wstring& value) override;
  Status WinHttpSendRequest(NativeHandle request, const std::wstring& headers, std::span<const std::byte> optionalData,
                            std::uint32_t totalLength, std::uintptr_t context) override;
  Status WinHttpReceiveResponse(NativeHandle request) override;
  Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level) override;
  Result<std::uint32_t> WinHttpQueryHeaders(NativeHandle request, std::uint32_t level,
                                            std::span<wchar_t> buffer) override;
  Status WinHttpQueryDataAvailable(NativeHandle request) override;
  Status WinHttpReadData(NativeHandle request, std::span<std::byte> buffer) override;
  Status WinHttpWriteData(NativeHandle request, std::span<const std::byte> data) override;
  Status WinHttpCloseHandle(NativeHandle handle) override;
  Result<NativeHandle> WinHttpQueryOption(NativeHandle request, std::uint32_t option) override;
  Result<IeProxySettings> WinHttpGetIEProxyConfigForCurrentUser() override;
  Result<std::wstring> WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) override;
  Result<ProxyInfo> WinHttpGetDefaultProxyConfiguration() override;
  Result<ProxyInfo> WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                          const AutoProxyOptions& options) override;
  Result<UrlComponents> WinHttpCrackUrl(const std::wstring& url) override;

 private:
  using Request = std::shared_ptr<HttpRequestHandle>;

  Status start(NativeHandle handle, HttpStage stage, const char* operation,
               const std::function<void(HttpRequestHandle&)>& prepare, std::uintptr_t context = 0);
  bool isOpenTo(const HttpRequestHandle& request) const;
  bool hasWork(const HttpRequestHandle& request) const;
  bool goesInline(const HttpRequestHandle& request, bool closing);
  void needWorker(const Request& request);
  void work(const Request& request);
  void complete(Guard& guard, const Request& request);
  void leave(HttpRequestHandle& request);
  void close(Guard& guard, HttpRequestHandle& request);
  bool notify(HttpRequestHandle& request, std::uint32_t status, void* information = nullptr, std::uint32_t length = 0);
  void finish(HttpRequestHandle& request, const HttpPending& call, std::uint32_t status, void* information = nullptr,
              std::uint32_t length = 0);
  void fail(HttpRequestHandle& request, const HttpPending& call, ErrorCode error);
  static void unbound(HttpHandle& object, std::uint32_t status);

  template <class Parent, class Child, class Describe>
  Result<InternetHandle> openBelow(const char* name, NativeHandle parent, const Describe& describe);
  bool proxyChallenges(const HttpExchange& seen) const;
  bool proxyAccepts(const HttpExchange& seen) const;
  bool shakeHands(HttpRequestHandle& request, const HttpPending& call);
  void askServer(HttpRequestHandle& request, bool whole);
  void takeBody(HttpRequestHandle& request, std::span<const std::byte> data);
  void answer(HttpRequestHandle& request, const HttpPending& call);
  bool reportSending(HttpRequestHandle& request, const HttpPending& call);
  bool reachServer(HttpRequestHandle& request, const HttpPending& call, std::span<const std::byte> data);
  bool mayFollow(const HttpExchange& seen, const HttpReply& reply) const;
  bool followRedirects(HttpRequestHandle& request, const HttpPending& call);

  Kernel& kernel_;
  Certificates& certificates_;
  Server server_;
  EarlyServer headersServer_;
  Handshake handshake_;
  std::vector<Request> requests_;
  bool released_ = false;
  bool ended_ = false;
};

}  // namespace sim
