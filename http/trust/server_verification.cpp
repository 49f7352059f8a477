#include "http/trust/server_verification.h"

#include <utility>

#include "core/format/error_text.h"
#include "core/log/log.h"
#include "core/text/text.h"
#include "http/trust/win_cert_implementation.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// The texts name WinHttpRequest, whose checks these are.

namespace {

/// Returns whether WinHTTP says that it has no such option: older versions with the first number, other
/// implementations with the second.
bool isUnknownOption(platform::ErrorCode error) {
  return error == platform::kErrorWinHttpInvalidOption || error == platform::kErrorInvalidParameter;
}

platform::ChainHandle buildChain(platform::NativeHandle certificate) {
  auto& certificates = platform::current().certificates;
  const platform::NativeHandle store = certificates.certificate(certificate).store;
  if (store == nullptr) {
    CORE::log(CORE::kError, L"WinHttpRequest::GetCertChain(): Unable to build certificate chain: missing store");
    return {};
  }
  CORE::log(CORE::kDebug, L"WinHttpRequest::GetCertChain(): Building the certificate chain using the system store");
  auto chain = certificates.CertGetCertificateChain(certificate, store, WinCertImplementation::serverUsages(),
                                                    platform::kChainCacheOnlyUrlRetrieval, 0);
  if (!chain) {
    CORE::log(CORE::kError, L"WinHttpRequest::GetCertChain(): CertGetCertificateChain Error: 0x%x %s", chain.error,
              CORE::systemErrorText(chain.error));
  }
  return std::move(chain.value);
}

/// Returns whether the chain ends before a root: the server has sent none, and none is installed.
bool isPartial(platform::NativeHandle chain) {
  return (platform::current().certificates.chain(chain).errorStatus & platform::kTrustIsPartialChain) != 0;
}

bool isTolerated(std::uint32_t status) { return status == 0 || status == platform::kCertECnNoMatch; }

}  // namespace

platform::CertificateHandle ServerVerification::GetServerCert(platform::NativeHandle request) {
  const auto asked = platform::current().winHttp.WinHttpQueryOption(request, platform::kOptionServerCertContext);
  if (!asked) {
    CORE::log(CORE::kError, L"WinHttpRequest::GetServerCert(): Unable to query cert ctx, error 0x%x (%s)", asked.error,
              CORE::systemErrorText(asked.error));
    return {};
  }
  if (asked.value == nullptr) {
    CORE::log(CORE::kError, L"WinHttpRequest::GetServerCert(): Server certificate context is NULL");
  }
  return platform::CertificateHandle(asked.value);
}

platform::ChainHandle ServerVerification::GetCertChain(platform::NativeHandle request,
                                                       platform::NativeHandle certificate) {
  const auto asked = platform::current().winHttp.WinHttpQueryOption(request, platform::kOptionServerCertChainContext);
  if (asked && asked.value != nullptr) {
    return platform::ChainHandle(asked.value);
  }
  if (!asked && !isUnknownOption(asked.error)) {
    CORE::log(CORE::kError, L"WinHttpRequest::GetCertChain(): Unable to query cert chain ctx, error 0x%x %s",
              asked.error, CORE::systemErrorText(asked.error));
    return {};
  }
  return buildChain(certificate);
}

bool ServerVerification::verifyCertChain(bool& untrustedRoot) const {
  untrustedRoot = false;
  const platform::NativeHandle chain = server_.chain.get();
  std::uint32_t status = 0;
  if (!WinCertImplementation::VerifyCertChain(chain, status, false, trust_.ignoreName, host_)) {
    CORE::log(CORE::kError, L"WinHttpRequest::verifyCertChain(): Initial VerifyCertChain failed");
    return false;
  }
  if ((isTolerated(status) || status == platform::kCertEUntrustedRoot) && isPartial(chain)) {
    status = platform::kCertEChaining;  // not every policy engine finds it, and no pin may accept such a chain
  }
  const bool untrusted = status == platform::kCertEUntrustedRoot;
  if (!untrusted && !isTolerated(status)) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::verifyCertChain(): Unable to verify cert chain. Error: 0x%x", status);
    return false;
  }
  if (untrusted) {
    if (!WinCertImplementation::VerifyCertChain(chain, status, true, trust_.ignoreName, host_)) {
      CORE::log(CORE::kError, L"WinHttpRequest::verifyCertChain(): VerifyCertChain with untrustedroot ignored failed");
      return false;
    }
    if (!isTolerated(status)) {
      CORE::log(CORE::kDebug,
                L"WinHttpRequest::verifyCertChain(): Unable to verify cert chain with CA check disabled. Error: 0x%x",
                status);
      return false;
    }
  }
  if (status == platform::kCertECnNoMatch) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::verifyCertChain(): Found a CN/SAN mismatch");
    if (!trust_.ignoreName) {
      return false;
    }
  }
  untrustedRoot = untrusted;
  return true;
}

bool ServerVerification::thumbprintMatch() const {
  if (trust_.pins.empty()) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::thumbprintMatch(): No trusted thumbprints provided.");
    return false;
  }
  const auto certificates = WinCertImplementation::ExtractCertificatesFromChain(server_.chain.get(), false);
  if (certificates.empty()) {
    CORE::log(CORE::kError, L"WinHttpRequest::thumbprintMatch(): Failed to extract individual certs from chain.");
    return false;
  }
  std::vector<std::string> shown;
  for (const auto& certificate : certificates) {
    std::string thumbprint = WinCertImplementation::GetThumbprint(certificate.get());
    CORE::log(CORE::kTrace, L"WinHttpRequest::thumbprintMatch(): Server Thumbprint: %S", thumbprint);
    if (!thumbprint.empty()) {  // an empty pin must not match what could not be hashed
      shown.push_back(std::move(thumbprint));
    }
  }
  for (const std::string& pin : trust_.pins) {
    for (const std::string& thumbprint : shown) {
      if (CORE::equalNarrow(pin, thumbprint)) {
        CORE::log(CORE::kTrace, L"WinHttpRequest::thumbprintMatch(): Matched thumbprint: %S", thumbprint);
        return true;
      }
    }
  }
  CORE::log(CORE::kDebug, L"WinHttpRequest::thumbprintMatch(): Thumbprints did not match.");
  return false;
}

bool ServerVerification::automaticCRLCheck() const {
  const auto certificates = WinCertImplementation::ExtractCertificatesFromChain(server_.chain.get(), false);
  std::uint32_t error = 0;
  std::uint32_t information = 0;
  if (!WinCertImplementation::VerifyCertRevocation(certificates, server_.certificate.get(), trust_.retrievalTimeout,
                                                   error, information)) {
    CORE::log(CORE::kError, L"WinHttpRequest::automaticCRLCheck(): Failed to make revocation check");
    return false;
  }
  if (error != 0) {
    CORE::log(CORE::kError, L"WinHttpRequest::automaticCRLCheck(): Revocation check failed. Status: 0x%x Info: 0x%x",
              error, information);
    return false;
  }
  return true;
}

std::vector<BinaryThumbprint> ServerVerification::thumbprints() const {
  std::vector<BinaryThumbprint> thumbprints;
  // The flag says "live" where the result is compared with an earlier one; it makes no difference.
  for (const auto& certificate : WinCertImplementation::ExtractCertificatesFromChain(server_.chain.get(), true)) {
    thumbprints.push_back(WinCertImplementation::GetThumbprintBinary(certificate.get()));
  }
  return thumbprints;
}
