// What the simulated network, the handshake and the scripted server do with a request.
#include "tests/sim/http_handles.h"
#include "tests/sim/internet.h"

namespace sim {
namespace {

constexpr std::uint32_t kMaxPiece = 8192;  // the most bytes that Windows reports as available
constexpr ErrorCode kErrorResendRequest = 12032;
constexpr ErrorCode kErrorRedirectFailed = 12156;
constexpr std::uint32_t kCertEExpired = 0x800B0101;
constexpr std::uint32_t kCertEWrongUsage = 0x800B0110;
constexpr std::uint32_t kTrustIsRevoked = 0x4;  // CERT_TRUST_IS_REVOKED

/// Returns the bits of SECURE_FAILURE for those faults of the chain that the request does not ignore; 0 when the
/// handshake succeeds.
std::uint32_t failureBits(const ServerChain& chain, const HttpExchange& seen) {
  const auto feature = seen.numberOptions.find(kOptionEnableFeature);
  const bool checksRevocation = feature != seen.numberOptions.end() && (feature->second & kEnableSslRevocation) != 0;
  const bool expired = chain.policyStatus == kCertEExpired;
  const bool misused = chain.policyStatus == kCertEWrongUsage;
  const bool revoked = (chain.revocationError & kTrustIsRevoked) != 0;
  const struct {
    bool found;
    std::uint32_t bit;
    std::uint32_t forgivenBy;  ///< a security flag
  } faults[] = {
      {checksRevocation && chain.revocationError != 0 && !revoked, kSecureFailureCertRevFailed, 0},
      {chain.policyStatus != 0 && !expired && !misused, kSecureFailureInvalidCert, 0},
      {checksRevocation && revoked, kSecureFailureCertRevoked, 0},
      {!chain.trustedRoot || chain.partial, kSecureFailureInvalidCa, kSecurityFlagIgnoreUnknownCa},
      {!chain.nameMatches, kSecureFailureCertCnInvalid, kSecurityFlagIgnoreCertCnInvalid},
      {expired, kSecureFailureCertDateInvalid, kSecurityFlagIgnoreCertDateInvalid},
      {misused, kSecureFailureCertWrongUsage, kSecurityFlagIgnoreCertWrongUsage},
  };
  std::uint32_t bits = 0;
  for (const auto& [found, bit, forgivenBy] : faults) {
    bits |= found && (seen.securityFlags() & forgivenBy) == 0 ? bit : 0;
  }
  return bits;
}

}  // namespace

bool WinHttp::proxyChallenges(const HttpExchange& seen) const {
  return proxyCredentials && seen.accessType == kAccessTypeNamedProxy && (seen.requestFlags & kWinHttpFlagSecure) != 0;
}

bool WinHttp::proxyAccepts(const HttpExchange& seen) const {
  const auto is = [&](std::uint32_t option, const std::wstring& value) {
    const auto found = seen.textOptions.find(option);
    return found != seen.textOptions.end() && found->second == value;
  };
  return is(kOptionProxyUsername, proxyCredentials->first) && is(kOptionProxyPassword, proxyCredentials->second);
}

/// Does the handshake of a send. Returns false when the send ends with that: it failed, or is never answered.
bool WinHttp::shakeHands(HttpRequestHandle& request, const HttpPending& call) {
  const HttpExchange seen = kernel_.copyOf(request.known);
  const auto server = kernel_.copyOf(handshake_);
  const ServerChain chain = server != nullptr ? server(seen) : ServerChain{{{"leaf"}, {"root"}}};
  if (chain.silent) {
    const Guard guard(kernel_.mutex);
    request.pending = call;
    request.silenced = true;
    kernel_.wake();
    return false;
  }
  certificates_.know(chain);
  if (std::uint32_t bits = failureBits(chain, seen); bits != 0) {
    notify(request, kStatusSecureFailure, &bits, sizeof(bits));
    fail(request, call, kErrorWinHttpSecureFailure);
    return false;
  }
  kernel_.set(request.shown, std::optional(chain));
  return true;
}

Result<NativeHandle> WinHttp::WinHttpQueryOption(NativeHandle handle, std::uint32_t option) {
  return kernel_.callOn<HttpRequestHandle>(__func__, handle, [&](HttpRequestHandle& request) -> NativeHandle {
    const bool asksChain = option == kOptionServerCertChainContext;
    refuseIf(asksChain ? !knowsChainOption : option != kOptionServerCertContext, kErrorWinHttpInvalidOption);
    refuseIf(!request.shown, kErrorWinHttpIncorrectHandleState);
    const ServerChain& shown = *request.shown;
    return asksChain ? certificates_.addChain(shown, shown.trustError())
                     : certificates_.addCertificate(shown.certificates.front());
  });
}

// Where the simulated WinHTTP finds proxies.

Result<IeProxySettings> WinHttp::WinHttpGetIEProxyConfigForCurrentUser() {
  return kernel_.call(__func__, [&] { return proxies.ie; });
}

Result<std::wstring> WinHttp::WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) {
  return kernel_.call(__func__, [&] {
    refuseIf(flags != kAutoDetectDhcpAndDnsA, kErrorInvalidParameter);
    refuseIf(proxies.wpadUrl.empty(), kErrorWinHttpAutodetectionFailed);
    return proxies.wpadUrl;
  });
}

Result<ProxyInfo> WinHttp::WinHttpGetDefaultProxyConfiguration() {
  return kernel_.call(__func__, [&] {
    ProxyInfo info = proxies.winHttpDefault;
    info.accessType = info.proxy.empty() ? kAccessTypeNoProxy : kAccessTypeNamedProxy;
    return info;
  });
}

Result<ProxyInfo> WinHttp::WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                                 const AutoProxyOptions& options) {
  return kernel_.callOn<HttpSessionHandle>(__func__, session, [&](HttpSessionHandle& object, Guard& guard) {
    const HttpExchange& known = object.known;
    proxies.pacCalls.emplace_back(known.userAgent, known.accessType, known.sessionFlags, options.autoLogon);
    refuseIf(options.flags != kAutoProxyConfigUrl || options.detectFlags != 0, kErrorInvalidParameter);
    const auto file = proxies.pacFiles.find(options.configUrl);
    refuseIf(file == proxies.pacFiles.end(), kErrorWinHttpUnableToDownloadScript);
    guard.unlock();
    const std::wstring proxy = file->second(url);
    const auto type = proxy.empty() ? kAccessTypeNoProxy : kAccessTypeNamedProxy;
    return ProxyInfo{type, proxy, {}};
  });
}

/// Asks the server for its answer: when the body is complete (`whole`), or when the headers have arrived.
void WinHttp::askServer(HttpRequestHandle& request, bool whole) {
  const HttpExchange seen = kernel_.copyOf(request.known);
  const auto server = kernel_.copyOf(server_);
  const auto early = kernel_.copyOf(headersServer_);
  std::optional<HttpReply> reply;
  if (whole) {
    reply = server != nullptr ? server(seen) : HttpReply{};
  } else if (early != nullptr) {
    reply = early(seen);
  }
  kernel_.set(request.reply, std::move(reply));
}

void WinHttp::takeBody(HttpRequestHandle& request, std::span<const std::byte> data) {
  Guard guard(kernel_.mutex);
  HttpExchange& known = request.known;
  known.bodySize += data.size();
  const auto kept = std::min<std::uint64_t>(data.size(), storeBodyUpTo - known.body.size());
  known.body.append(reinterpret_cast<const char*>(data.data()), static_cast<std::size_t>(kept));
  if (known.bodySize == known.totalLength && !request.reply) {
    guard.unlock();
    askServer(request, true);
  }
}

void WinHttp::answer(HttpRequestHandle& request, const HttpPending& call) {
  if (call.stage == HttpStage::kSend) {
    if (reachServer(request, call, call.data)) {
      finish(request, call, kStatusSendRequestComplete);
    }
    return;
  }
  const std::uint64_t rest = request.reply ? request.replySize() - request.bodyRead : 0;
  if (call.stage == HttpStage::kWrite) {
    takeBody(request, call.data);
    auto written = static_cast<std::uint32_t>(call.data.size());
    finish(request, call, kStatusWriteComplete, &written, sizeof(written));
  } else if (!request.reply) {
    fail(request, call, kErrorWinHttpTimeout);  // the server still waits for the body
  } else if (call.stage == HttpStage::kReceive) {
    if (followRedirects(request, call)) {
      kernel_.set(request.headersReady, true);
      finish(request, call, kStatusHeadersAvailable);
    }
  } else if (call.stage == HttpStage::kQueryData) {
    const auto& pieces = request.reply->pieces;
    if (request.available == 0) {
      const std::uint32_t piece = request.piece < pieces.size() ? pieces[request.piece] : kMaxPiece;
      ++request.piece;
      request.available = static_cast<std::uint32_t>(std::min<std::uint64_t>(piece, rest));
    }
    std::uint32_t available = request.available;
    finish(request, call, kStatusDataAvailable, &available, sizeof(available));
  } else {
    const auto count = std::min<std::uint64_t>(call.buffer.size(), rest);
    const std::string repeated(request.reply->repeatedBody != 0 ? count : 0, 'x');
    const auto part =
        repeated.empty() ? std::string_view(request.reply->body).substr(request.bodyRead, count) : repeated;
    std::ranges::copy(std::as_bytes(std::span(part)), call.buffer.begin());
    request.bodyRead += count;
    request.available -= static_cast<std::uint32_t>(std::min<std::uint64_t>(count, request.available));
    finish(request, call, kStatusReadComplete, call.buffer.data(), static_cast<std::uint32_t>(count));
  }
}

/// Returns false when the program has closed the request inside the notification; the call has ended then.
bool WinHttp::reportSending(HttpRequestHandle& request, const HttpPending& call) {
  const bool goesOn = !reportsSending || notify(request, kStatusSendingRequest);
  if (!goesOn) {
    finish(request, call, 0);
  }
  return goesOn;
}

/// Connects, and sends the headers and the data that goes with them. Returns false when the call has ended with that.
bool WinHttp::reachServer(HttpRequestHandle& request, const HttpPending& call, std::span<const std::byte> data) {
  const HttpExchange seen = kernel_.copyOf(request.known);
  const bool challenged = proxyChallenges(seen);
  const bool refused = challenged && !proxyAccepts(seen);
  if (challenged && !reportSending(request, call)) {
    return false;
  }
  const bool secure = (seen.requestFlags & kWinHttpFlagSecure) != 0;
  if (!refused && ((secure && !shakeHands(request, call)) || !reportSending(request, call))) {
    return false;
  }
  kernel_.set(request.known.reached, !refused);
  if (refused) {
    kernel_.set(request.reply, std::optional(HttpReply{407}));
  } else {
    askServer(request, false);
  }
  takeBody(request, data);
  return true;
}

bool WinHttp::mayFollow(const HttpExchange& seen, const HttpReply& reply) const {
  if (reply.status < 300 || reply.status > 399 || reply.location.empty()) {
    return false;
  }
  const auto policy = seen.numberOptions.find(kOptionRedirectPolicy);
  const bool leavesTls =
      (seen.requestFlags & kWinHttpFlagSecure) != 0 && splitUrl(reply.location).schemeNumber != kSchemeHttps;
  return !leavesTls && (policy == seen.numberOptions.end() || policy->second != kRedirectPolicyNever);
}

/// Goes where the answer points to, ten times at most, as WinHTTP does by itself: each time another exchange under the
/// same handle. Returns false when the call has ended with that.
bool WinHttp::followRedirects(HttpRequestHandle& request, const HttpPending& call) {
  for (int hops = 0; mayFollow(kernel_.copyOf(request.known), *request.reply); ++hops) {
    const bool again = request.reply->status >= 307;
    if (hops == 10 || (again && !request.known.writes.empty())) {
      fail(request, call, hops == 10 ? kErrorRedirectFailed : kErrorResendRequest);
      return false;
    }
    const UrlComponents to = splitUrl(request.reply->location);
    Guard guard(kernel_.mutex);
    const auto former = std::make_shared<HttpRequestHandle>();
    former->known = request.known;
    former->finished = true;
    requests_.insert(std::ranges::find(requests_, &request, &Request::get), former);
    HttpExchange& known = request.known;
    known.index = requests_.size() - 1;
    known.host = to.host;
    known.port = to.port;
    known.path = to.path + to.extra;
    known.requestFlags |= to.schemeNumber == kSchemeHttps ? kWinHttpFlagSecure : 0;
    known.verb = again ? known.verb : L"GET";
    known.totalLength = again ? known.totalLength : 0;
    known.bodySize = 0;
    known.body.clear();
    request.shown.reset();
    guard.unlock();
    if (!reachServer(request, call, again ? request.optionalData : std::span<const std::byte>())) {
      return false;
    }
  }
  return true;
}

}  // namespace sim
