#include "http/trust/certificate_gate.h"

#include <algorithm>
#include <utility>

#include "core/log/log.h"
#include "core/settings/configuration.h"
#include "platform/winhttp.h"

// The texts name the operations of WinHttpRequest that call the gate.

bool CertificateGate::watchesSending(bool viaProxy) const {
  return !settings_.pins.empty() || (viaProxy && settings_.checkRevocation) || isProbe_;
}

std::uint32_t CertificateGate::securityFlags() const {
  std::uint32_t flags = settings_.ignoreName ? platform::kSecurityFlagIgnoreCertCnInvalid : 0U;
  if (settings_.ignoreAllErrors) {
    flags |= platform::kSecurityFlagIgnoreAll;
  } else if (!settings_.pins.empty()) {
    flags |= platform::kSecurityFlagIgnoreUnknownCa;  // the pins decide whom to trust
  }
  return flags;
}

bool CertificateGate::usesPlatformRevocation(bool viaProxy) const {
  // Through a proxy the platform could not download CRLs; the live check looks for revocation there.
  return !settings_.ignoreAllErrors && settings_.pins.empty() && settings_.checkRevocation && !viaProxy;
}

bool CertificateGate::bindsToServer() const { return !settings_.pins.empty() || settings_.checkRevocation || isProbe_; }

bool CertificateGate::lacksLiveCheck(bool viaProxy) const {
  return watchesSending(viaProxy) && !settings_.ignoreAllErrors && !passed_;
}

bool CertificateGate::preflight(const std::wstring& host, bool viaProxy, const CertificateSources& sources) {
  if (isProbe_) {
    CORE::log(CORE::kTrace,
              L"WinHttpRequest::preflightCertVerification(): Skipping preflight certificate verification");
    return true;
  }
  if (settings_.ignoreAllErrors || !settings_.checkRevocation) {
    return true;
  }
  CORE::log(CORE::kDebug, L"WinHttpRequest::preflightCertVerification(): Sending out preflight request");
  const auto server = sources.probe();
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
  return verifyPreflight(ServerVerification(*server, settings_, host), viaProxy, sources);
}

bool CertificateGate::verifyPreflight(const ServerVerification& verification, bool viaProxy,
                                      const CertificateSources& sources) {
  bool untrustedRoot = false;
  if (!verification.verifyCertChain(untrustedRoot)) {
    CORE::log(CORE::kDebug,
              L"WinHttpRequest::preflightCertVerification(): Preflight certificate chain verification failed");
    return false;
  }
  if (!checkPreflightRevocation(verification, !viaProxy && !untrustedRoot, sources)) {
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

bool CertificateGate::checkPreflightRevocation(const ServerVerification& verification, bool automatic,
                                               const CertificateSources& sources) {
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
  if (!verification.performManualCRLCheck(sources.downloadCrl)) {
    CORE::log(CORE::kError, L"WinHttpRequest::preflightCertVerification(): Preflight: manual CRL check failed");
    return false;
  }
  return true;
}

std::shared_ptr<const ServerCertificates> CertificateGate::capture(platform::NativeHandle request) {
  auto server = std::make_shared<ServerCertificates>();
  server->certificate = ServerVerification::GetServerCert(request);
  if (!server->certificate) {
    CORE::log(CORE::kError, L"WinHttpRequest::SendingRequest(): Unable to obtain server certificate");
    return nullptr;
  }
  server->chain = ServerVerification::GetCertChain(request, server->certificate.get());
  if (!server->chain) {
    CORE::log(CORE::kError, L"WinHttpRequest::SendingRequest(): Unable to obtain certificate chain");
    return nullptr;
  }
  // The certificates captured before are released after the lock is gone.
  std::shared_ptr<const ServerCertificates> earlier = server;
  const CORE::MutexLock lock(mutex_);
  captured_.swap(earlier);
  return server;
}

std::shared_ptr<const ServerCertificates> CertificateGate::captured() const {
  const CORE::MutexLock lock(mutex_);
  return captured_;
}

bool CertificateGate::checkLive(const ServerCertificates& server, const std::wstring& host) {
  if (isProbe_) {
    CORE::log(CORE::kTrace,
              L"WinHttpRequest::SendingRequest(): Cert chain captured; aborting probe before any HTTP data is sent to "
              L"the server");
    return false;
  }
  const ServerVerification verification(server, settings_, host);
  passed_ = preflightThumbprints_.empty() ? verifyLive(verification) : matchesPreflight(verification);
  return passed_;
}

bool CertificateGate::matchesPreflight(const ServerVerification& verification) const {
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

bool CertificateGate::verifyLive(const ServerVerification& verification) const {
  bool untrustedRoot = false;
  if (!verification.verifyCertChain(untrustedRoot)) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::SendingRequest(): Certificate chain verification failed.");
    return false;
  }
  if (settings_.checkRevocation && !verification.automaticCRLCheck()) {
    CORE::log(CORE::kTrace, L"WinHttpRequest::SendingRequest(): Certificate revocation check failed.");
    return false;
  }
  if (untrustedRoot && !verification.thumbprintMatch()) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::SendingRequest(): Thumbprint verification failed.");
    return false;
  }
  return true;
}
