#include <algorithm>
#include <utility>

#include "core/log/log.h"
#include "core/settings/configuration.h"
#include "core/text/convert.h"
#include "http/win_http_request.h"

// When and on which chain the server's certificates are checked: before the session is opened, on a chain that a probe
// brought; and at the last moment before data leaves, on the live one.

bool WinHttpRequest::preflightCertVerification() {
  if (isProbe_) {
    CORE::log(CORE::kTrace,
              L"WinHttpRequest::preflightCertVerification(): Skipping preflight certificate verification");
    return true;
  }
  if (trust_.ignoreAllErrors || !trust_.checkRevocation) {
    return true;
  }
  const auto server = probeServer();
  if (!server) {
    CORE::log(CORE::kWarn,
              L"WinHttpRequest::preflightCertVerification(): Preflight request failed to obtain server certificates. "
              L"Will perform an in-callback check instead.");
    return true;
  }
  CORE::log(CORE::kDebug,
            L"WinHttpRequest::preflightCertVerification(): Preflight request successfully obtained the server's "
            L"certificates");
  CORE::log(CORE::kDebug, L"WinHttpRequest::preflightCertVerification(): Verifying preflight's certificates");
  return verifyPreflight(ServerVerification(*server, trust_, host_));
}

std::shared_ptr<const ServerCertificates> WinHttpRequest::probeServer() {
  const auto probe = create();
  probe->actAsProbe();
  handProxyTo(*probe);
  probe->timeouts_ = timeouts_;
  probe->trust_.pins = trust_.pins;
  probe->trust_.ignoreName = trust_.ignoreName;
  CORE::log(CORE::kDebug, L"WinHttpRequest::preflightCertVerification(): Sending out preflight request");
  std::string nothing;
  probe->get(CORE::to_mstr(url_, CORE::kUtf8), nothing);  // fails by design: it is closed once it has the chain
  const std::lock_guard guard(probe->resultMutex_);       // a probe that was given up may still be at work
  return probe->server_;
}

void WinHttpRequest::handProxyTo(WinHttpRequest& request) const {
  request.setProxyBypass(proxyBypass_);
  request.setProxy(proxy_);
  request.setProxyCredentials(proxyUser_, proxyPassword_.str());
}

bool WinHttpRequest::verifyPreflight(const ServerVerification& verification) {
  bool untrustedRoot = false;
  if (!verification.verifyCertChain(untrustedRoot)) {
    CORE::log(CORE::kDebug,
              L"WinHttpRequest::preflightCertVerification(): Preflight certificate chain verification failed");
    return false;
  }
  if (!checkPreflightRevocation(verification, untrustedRoot)) {
    return false;
  }
  CORE::log(CORE::kDebug,
            L"WinHttpRequest::preflightCertVerification(): CRL check for preflight's certificates completed");
  if (untrustedRoot && !verification.thumbprintMatch()) {
    CORE::log(CORE::kError, L"WinHttpRequest::preflightCertVerification(): Thumbprint verification failed.");
    return false;
  }
  preflightThumbprints_ = verification.thumbprints();
  if (preflightThumbprints_.empty()) {
    CORE::log(CORE::kError, L"WinHttpRequest::preflightCertVerification(): Preflight: no certs extracted from chain");
    return false;
  }
  return true;
}

bool WinHttpRequest::checkPreflightRevocation(const ServerVerification& verification, bool untrustedRoot) const {
  bool automatic = proxy_.empty() && !untrustedRoot;
  if (!automatic && CORE::readSettingBool(CORE::kDisableManualCRLCheck)) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::preflightCertVerification(): Manual CRL check is disabled by killswitch");
    automatic = true;
  }
  if (automatic) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::preflightCertVerification(): Performing automatic CRL check");
    if (!verification.automaticCRLCheck()) {
      CORE::log(CORE::kDebug, L"WinHttpRequest::preflightCertVerification(): Preflight: automatic CRL check failed");
      return false;
    }
    return true;
  }
  CORE::log(CORE::kDebug, L"WinHttpRequest::preflightCertVerification(): Performing manual CRL check");
  const auto download = [this](const std::string& url, std::string& body) { return downloadCrl(url, body); };
  if (!verification.performManualCRLCheck(download)) {
    CORE::log(CORE::kError, L"WinHttpRequest::preflightCertVerification(): Preflight: manual CRL check failed");
    return false;
  }
  return true;
}

bool WinHttpRequest::downloadCrl(const std::string& url, std::string& body) const {
  const auto request = create();
  request->allowPlainHttp();
  handProxyTo(*request);
  request->setPacUrl(pacUrl_);
  return request->get(url, body);
}

bool WinHttpRequest::SendingRequest() {
  if (chainVerified_) {
    CORE::log(CORE::kTrace,
              L"WinHttpRequest::SendingRequest(): Skip as server certificate chain has already been verified");
    return true;
  }
  if (!handles_.useRequest()) {
    CORE::log(CORE::kError, L"WinHttpRequest::SendingRequest(): Request handle doesn't exist");
    return false;
  }
  if (trust_.ignoreAllErrors) {
    return true;
  }
  const auto server = captureServer();
  if (!server) {
    return false;
  }
  if (isProbe_) {
    CORE::log(CORE::kTrace,
              L"WinHttpRequest::SendingRequest(): Cert chain captured; aborting probe before any HTTP data is sent to "
              L"the server");
    return false;
  }
  const ServerVerification verification(*server, trust_, host_);
  chainVerified_ = preflightThumbprints_.empty() ? verifyLive(verification) : matchesPreflight(verification);
  return chainVerified_;
}

std::shared_ptr<const ServerCertificates> WinHttpRequest::captureServer() {
  auto server = std::make_shared<ServerCertificates>();
  const auto call = handles_.useRequest();  // not longer than this: a close waits for it
  server->certificate = ServerVerification::GetServerCert(call.handle());
  if (!server->certificate) {
    CORE::log(CORE::kError, L"WinHttpRequest::SendingRequest(): Unable to obtain server certificate");
    return nullptr;
  }
  server->chain = ServerVerification::GetCertChain(call.handle(), server->certificate.get());
  if (!server->chain) {
    CORE::log(CORE::kError, L"WinHttpRequest::SendingRequest(): Unable to obtain certificate chain");
    return nullptr;
  }
  const std::lock_guard guard(resultMutex_);
  server_ = server;
  return server;
}

bool WinHttpRequest::matchesPreflight(const ServerVerification& verification) const {
  const auto live = verification.thumbprints();
  if (live.empty()) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::SendingRequest(): Failed to extract individual certs from chain.");
    return false;
  }
  for (const BinaryThumbprint& thumbprint : live) {
    // A certificate that could not be hashed matches nothing, not even another such one.
    if (thumbprint.empty() || std::find(preflightThumbprints_.begin(), preflightThumbprints_.end(), thumbprint) ==
                                  preflightThumbprints_.end()) {
      CORE::log(CORE::kDebug, L"WinHttpRequest::SendingRequest(): Preflight thumbprint did NOT match live cert");
      return false;
    }
    CORE::log(CORE::kTrace, L"WinHttpRequest::SendingRequest(): Preflight thumbprint matched live cert");
  }
  CORE::log(CORE::kTrace,
            L"WinHttpRequest::SendingRequest(): Preflight thumbprints matched all live certs, skipping further "
            L"verification");
  return true;
}

bool WinHttpRequest::verifyLive(const ServerVerification& verification) const {
  bool untrustedRoot = false;
  if (!verification.verifyCertChain(untrustedRoot)) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::SendingRequest(): Certificate chain verification failed.");
    return false;
  }
  if (trust_.checkRevocation && !verification.automaticCRLCheck()) {
    CORE::log(CORE::kTrace, L"WinHttpRequest::SendingRequest(): Certificate revocation check failed.");
    return false;
  }
  if (untrustedRoot && !verification.thumbprintMatch()) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::SendingRequest(): Thumbprint verification failed.");
    return false;
  }
  return true;
}
