#include "core/base/memory_guard.h"
#include "core/format/error_text.h"
#include "core/format/format.h"
#include "core/log/log.h"
#include "http/trust/win_cert_implementation.h"
#include "platform/platform.h"

// What the platform says of revocation: whether a CRL is fresh, whether it lists a certificate, whether any certificate
// of a chain is revoked.

namespace {

platform::Certificates& api() { return platform::current().certificates; }

/// Returns the time as text, in UTC; zeros for a time that the calendar does not reach.
std::string timeText(platform::FileTime time) {
  const auto utc = platform::current().clock.FileTimeToSystemTime(time).value;
  return CORE::formatNarrow("%04d-%02d-%02d,%02d:%02d:%02d", utc.year, utc.month, utc.day, utc.hour, utc.minute,
                            utc.second);
}

/// Returns a store in memory that holds the certificates; none when one of them cannot be added.
platform::StoreHandle storeOf(const std::vector<platform::CertificateHandle>& certificates) {
  const auto failed = [](platform::ErrorCode error) -> platform::StoreHandle {
    CORE::log(CORE::kError,
              L"WinCertImplementation::VerifyCertRevocation(): Failed to add certificate to store, error = %s",
              CORE::systemErrorText(error));
    return {};
  };
  auto store = api().CertOpenStore();
  if (!store) {
    return failed(store.error);
  }
  for (const auto& certificate : certificates) {
    const auto added = api().CertAddCertificateContextToStore(store.value.get(), certificate.get(),
                                                              platform::kStoreAddReplaceExisting);
    if (!added) {
      return failed(added.error);
    }
  }
  return std::move(store.value);
}

}  // namespace

bool WinCertImplementation::IsCRLExpired(platform::NativeHandle crl) {
  if (crl == nullptr) {
    CORE::log(CORE::kError, L"WinCertImplementation::IsCRLExpired(): CRL context is invalid.");
    return true;
  }
  const auto view = api().crl(crl);
  if (!view.hasInfo) {
    CORE::log(CORE::kError, L"WinCertImplementation::IsCRLExpired(): CRL context has no CRL info.");
    return true;
  }
  const auto now = platform::current().clock.GetSystemTimeAsFileTime();
  if (now <= view.nextUpdate) {  // kept: without a next update (0) every time is later
    return false;
  }
  CORE::guardMemory([&] {
    CORE::log(CORE::kError, L"WinCertImplementation::IsCRLExpired(): CRL is expired. Current time: %S, Next update: %S",
              timeText(now), timeText(view.nextUpdate));
  });
  return true;
}

bool WinCertImplementation::IsCertificateRevoked(platform::NativeHandle certificate, platform::NativeHandle crl) {
  if (certificate == nullptr || crl == nullptr) {
    CORE::log(CORE::kError, L"WinCertImplementation::IsCertificateRevoked(): Invalid certificate or CRL context.");
    return true;
  }
  const auto listed = api().CertFindCertificateInCRL(certificate, crl);
  if (!listed) {
    CORE::log(
        CORE::kError,
        L"WinCertImplementation::IsCertificateRevoked(): Failed to search crl for certificate with thumbprint: %S.",
        GetThumbprint(certificate));
    return true;
  }
  return listed.value;
}

std::vector<std::string> WinCertImplementation::serverUsages() {
  return {platform::kOidServerAuth, platform::kOidServerGatedCrypto, platform::kOidNetscapeServerGatedCrypto};
}

bool WinCertImplementation::VerifyCertRevocation(const std::vector<platform::CertificateHandle>& certificates,
                                                 platform::NativeHandle certificate, std::uint32_t retrievalTimeout,
                                                 std::uint32_t& errorStatus, std::uint32_t& infoStatus) {
  errorStatus = 0;
  infoStatus = 0;
  if (certificate == nullptr) {
    return false;
  }
  const auto store = storeOf(certificates);
  if (!store) {
    return false;
  }
  const auto chain = CORE::guardMemory([&] {
    return api().CertGetCertificateChain(certificate, store.get(), serverUsages(),
                                         platform::kChainRevocationCheckChain | platform::kChainCacheEndCert,
                                         retrievalTimeout);
  });
  if (!chain) {
    CORE::log(CORE::kError,
              L"WinCertImplementation::VerifyCertRevocation(): CertGetCertificateChain with revocation failed: 0x%x %s",
              chain.error, CORE::systemErrorText(chain.error));
    return false;
  }
  const auto view = CORE::guardMemory([&] { return api().chain(chain.value.get()); });
  if (view.simpleChains == 0) {
    CORE::log(CORE::kDebug, L"WinCertImplementation::VerifyCertRevocation(): Unable to find first simple chain");
    return false;
  }
  errorStatus = view.errorStatus;
  infoStatus = view.infoStatus;
  return true;
}
