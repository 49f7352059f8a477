#include <array>

#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/trust/server_verification.h"
#include "http/trust/win_cert_implementation.h"
#include "platform/platform.h"

// The revocation check with CRLs that the program downloads itself, through the request's proxy. The texts name
// WinHttpRequest, whose check this is.

namespace {

using Download = ServerVerification::CrlDownload;
using CertificateUrls = WinCertImplementation::CertificateUrls;

enum class CrlAnswer { kNone, kNotRevoked, kRevoked };

/// Returns the subject in UTF-8, cut at 511 characters.
std::string subjectOf(platform::NativeHandle certificate) {
  std::array<wchar_t, 512> name{};
  platform::current().certificates.CertGetNameStringW(certificate, platform::kNameRdn, name);
  return CORE::toUtf8Lossy(name.data());
}

/// Downloads one CRL and asks it for the certificate. kNone when the CRL cannot be downloaded or used.
CrlAnswer askCrl(const std::string& url, platform::NativeHandle certificate, const std::string& thumbprint,
                 const Download& download) {
  CORE::log(CORE::kDebug, L"WinHttpRequest::performManualCRLCheck(): CRL URL: %S", url);
  std::string body;
  if (!download(url, body)) {
    CORE::log(CORE::kDebug, L"WinHttpRequest::performManualCRLCheck(): CRL request failed for %S", url);
    return CrlAnswer::kNone;
  }
  const auto crl = platform::current().certificates.CertCreateCRLContext(platform::kEncodingX509Pkcs7,
                                                                         std::as_bytes(std::span(body)));
  if (!crl) {
    CORE::log(CORE::kError, L"WinHttpRequest::performManualCRLCheck(): Unable to create CRL context for %S: %s", url,
              CORE::systemErrorText(crl.error));
    return CrlAnswer::kNone;
  }
  if (WinCertImplementation::IsCRLExpired(crl.value.get())) {
    CORE::log(CORE::kWarn, L"WinHttpRequest::performManualCRLCheck(): CRL %S is EXPIRED", url);
    return CrlAnswer::kNone;
  }
  if (WinCertImplementation::IsCertificateRevoked(certificate, crl.value.get())) {
    CORE::log(CORE::kError,
              L"WinHttpRequest::performManualCRLCheck(): Certificate with thumbprint %S is REVOKED by CRL %S",
              thumbprint, url);
    return CrlAnswer::kRevoked;
  }
  CORE::log(CORE::kDebug,
            L"WinHttpRequest::performManualCRLCheck(): Certificate with thumbprint %S is NOT revoked by CRL %S",
            thumbprint, url);
  return CrlAnswer::kNotRevoked;
}

bool checkCertificate(const CertificateUrls& listed, const Download& download) {
  const std::string thumbprint = WinCertImplementation::GetThumbprint(listed.certificate);
  if (listed.urls.empty()) {
    CORE::log(CORE::kDebug,
              L"WinHttpRequest::performManualCRLCheck(): No CRL URLs found for certificate with thumbprint: %S",
              thumbprint);
    CORE::log(CORE::kDebug,
              L"WinHttpRequest::performManualCRLCheck(): No CRL URLs found for certificate with subject name: %S",
              subjectOf(listed.certificate));
    return true;
  }
  for (const std::string& url : listed.urls) {
    const CrlAnswer answer = askCrl(url, listed.certificate, thumbprint, download);
    if (answer != CrlAnswer::kNone) {
      return answer == CrlAnswer::kNotRevoked;
    }
  }
  CORE::log(CORE::kError,
            L"WinHttpRequest::performManualCRLCheck(): CRL check failed. Unable to perform any CRL checks for "
            L"certificate with thumbprint %S.",
            thumbprint);
  return false;
}

}  // namespace

bool ServerVerification::performManualCRLCheck(const CrlDownload& download) const {
  if (!server_.chain) {
    CORE::log(CORE::kWarn, L"WinHttpRequest::performManualCRLCheck(): Certificate chain context is NULL");
    return false;
  }
  for (const CertificateUrls& listed : WinCertImplementation::ExtractCrlUrlsFromChain(server_.chain.get())) {
    if (!checkCertificate(listed, download)) {
      return false;
    }
  }
  return true;
}
