// What happens to a simulated HTTPS request before its headers leave: the proxy's door and the TLS handshake.
#include "tests/sim/http_handles.h"

namespace sim {
namespace {

constexpr std::uint32_t kCertEExpired = 0x800B0101;
constexpr std::uint32_t kCertEWrongUsage = 0x800B0110;
constexpr std::uint32_t kTrustIsRevoked = 0x4;  // CERT_TRUST_IS_REVOKED

/// A fault of the chain: the bit of SECURE_FAILURE that tells it, and the security flag that forgives it.
struct Complaint {
  bool found;
  std::uint32_t bit;
  std::uint32_t forgivenBy;
};

/// The bits of SECURE_FAILURE that are left of the chain's faults; 0 when the handshake succeeds.
std::uint32_t failureBits(const ServerChain& chain, const HttpExchange& seen) {
  const auto feature = seen.numberOptions.find(platform::kOptionEnableFeature);
  const bool checksRevocation =
      feature != seen.numberOptions.end() && (feature->second & platform::kEnableSslRevocation) != 0;
  const bool expired = chain.policyStatus == kCertEExpired;
  const bool misused = chain.policyStatus == kCertEWrongUsage;
  const bool revoked = (chain.revocationError & kTrustIsRevoked) != 0;
  const Complaint complaints[] = {
      {checksRevocation && chain.revocationError != 0 && !revoked, 0x1, 0},
      {chain.policyStatus != 0 && !expired && !misused, 0x2, 0},
      {checksRevocation && revoked, 0x4, 0},
      {!chain.trustedRoot, 0x8, platform::kSecurityFlagIgnoreUnknownCa},
      {!chain.nameMatches, 0x10, platform::kSecurityFlagIgnoreCertCnInvalid},
      {expired, 0x20, 0x2000},
      {misused, 0x40, 0x200},
  };
  std::uint32_t bits = 0;
  for (const auto& [found, bit, forgivenBy] : complaints) {
    bits |= found && (seen.securityFlags() & forgivenBy) == 0 ? bit : 0;
  }
  return bits;
}

}  // namespace

void WinHttp::onHandshake(std::function<ServerChain(const HttpExchange&)> server) {
  const Guard guard(kernel_.mutex);
  handshake_ = std::move(server);
}

bool WinHttp::proxyRefuses(const HttpExchange& seen) const {
  if (!proxyCredentials || seen.accessType != platform::kAccessTypeNamedProxy) {
    return false;
  }
  const auto is = [&](std::uint32_t option, const std::wstring& value) {
    const auto found = seen.textOptions.find(option);
    return found != seen.textOptions.end() && found->second == value;
  };
  return !is(platform::kOptionProxyUsername, proxyCredentials->first) ||
         !is(platform::kOptionProxyPassword, proxyCredentials->second);
}

/// The handshake of a send. False when the send does not go on: it failed, or stays unanswered.
bool WinHttp::shakeHands(HttpRequestHandle& request, const HttpPending& call) {
  Guard guard(kernel_.mutex);
  const HttpExchange seen = request.known;
  const auto server = handshake_;
  guard.unlock();
  const ServerChain chain = server != nullptr ? server(seen) : ServerChain{{{"leaf"}, {"root"}}};
  if (chain.silent) {
    guard.lock();
    request.pending = call;
    request.silenced = true;
    kernel_.wake();
    return false;
  }
  certificates_.know(chain);
  if (std::uint32_t bits = failureBits(chain, seen); bits != 0) {
    notify(request, platform::kStatusSecureFailure, &bits, sizeof(bits));
    fail(request, call, platform::kErrorWinHttpSecureFailure);
    return false;
  }
  guard.lock();
  request.shown = chain;
  return true;
}

Result<NativeHandle> WinHttp::WinHttpQueryOption(NativeHandle handle, std::uint32_t option) {
  const auto work = [&](HttpRequestHandle& request) -> Result<NativeHandle> {
    const bool asksChain = option == platform::kOptionServerCertChainContext;
    if (asksChain ? !knowsChainOption : option != platform::kOptionServerCertContext) {
      return Failure{platform::kErrorWinHttpInvalidOption};
    }
    if (!request.shown) {
      return Failure{platform::kErrorWinHttpIncorrectHandleState};
    }
    const ServerChain& shown = *request.shown;
    if (asksChain) {
      return {true, certificates_.addChain(shown, shown.trustError()), 0};
    }
    return {true, shown.certificates.empty() ? nullptr : certificates_.addCertificate(shown.certificates.front()), 0};
  };
  return kernel_.callOn<HttpRequestHandle>("WinHttpQueryOption", handle, work);
}

// Where the simulated WinHTTP finds proxies.

Result<platform::IeProxySettings> WinHttp::WinHttpGetIEProxyConfigForCurrentUser() {
  return kernel_.call("WinHttpGetIEProxyConfigForCurrentUser", [&] {
    return Result<platform::IeProxySettings>{true, proxies.ie, 0};
  });
}

Result<std::wstring> WinHttp::WinHttpDetectAutoProxyConfigUrl(std::uint32_t flags) {
  return kernel_.call("WinHttpDetectAutoProxyConfigUrl", [&]() -> Result<std::wstring> {
    if (flags == 0 || (flags & ~platform::kAutoDetectDhcpAndDnsA) != 0) {
      return Failure{platform::kErrorInvalidParameter};
    }
    if (proxies.wpadUrl.empty()) {
      return Failure{platform::kErrorWinHttpAutodetectionFailed};
    }
    return {true, proxies.wpadUrl, 0};
  });
}

Result<platform::ProxyInfo> WinHttp::WinHttpGetDefaultProxyConfiguration() {
  return kernel_.call("WinHttpGetDefaultProxyConfiguration", [&] {
    platform::ProxyInfo info = proxies.winHttpDefault;
    info.accessType = info.proxy.empty() ? platform::kAccessTypeNoProxy : platform::kAccessTypeNamedProxy;
    return Result<platform::ProxyInfo>{true, info, 0};
  });
}

Result<platform::ProxyInfo> WinHttp::WinHttpGetProxyForUrl(NativeHandle session, const std::wstring& url,
                                                           const platform::AutoProxyOptions& options) {
  const auto work = [&](HttpSessionHandle&, Guard& guard) -> Result<platform::ProxyInfo> {
    if (options.flags != platform::kAutoProxyConfigUrl || options.detectFlags != 0 || options.configUrl.empty()) {
      return Failure{platform::kErrorInvalidParameter};
    }
    const auto file = proxies.pacFiles.find(options.configUrl);
    if (file == proxies.pacFiles.end()) {
      return Failure{platform::kErrorWinHttpUnableToDownloadScript};
    }
    const auto findProxy = file->second;
    guard.unlock();
    const std::wstring proxy = findProxy(url);
    return {true, {proxy.empty() ? platform::kAccessTypeNoProxy : platform::kAccessTypeNamedProxy, proxy, {}}, 0};
  };
  return kernel_.callOn<HttpSessionHandle>("WinHttpGetProxyForUrl", session, work);
}

}  // namespace sim
