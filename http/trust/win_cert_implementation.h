#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/certificates.h"
#include "platform/handle.h"

/// Helpers over platform certificates, chains and CRLs, given by their contexts, which stay the caller's. Stateless;
/// any thread. They log their failures and report them by their result: null, an empty list or text, false. Questions
/// of revocation fail closed. \throws CORE::coreException "OutOfMem" only.
class WinCertImplementation {
 public:
  /// A certificate of a chain, which stays the chain's, beside its CRL distribution URLs (UTF-8, in their order).
  struct CertificateUrls {
    platform::NativeHandle certificate = nullptr;
    std::vector<std::string> urls;
  };

  /// A certificate from PEM or bare base64 text; null when it is neither.
  static platform::CertificateHandle ConvertPEMToCertCtx(std::string_view text);

  /// Duplicates of every certificate of the first simple chain, leaf first. `asLive` makes no difference.
  static std::vector<platform::CertificateHandle> ExtractCertificatesFromChain(platform::NativeHandle chain,
                                                                               bool asLive);

  /// The URLs of the certificate's CRL distribution points, in their order.
  static std::vector<std::string> ExtractCrlUrlsFromCert(platform::NativeHandle certificate);

  /// The same for each certificate of the chain, leaf first.
  static std::vector<CertificateUrls> ExtractCrlUrlsFromChain(platform::NativeHandle chain);

  /// True, too, for a CRL that cannot be used or names no next update. One whose next update is now has not expired.
  static bool IsCRLExpired(platform::NativeHandle crl);

  /// True, too, when it cannot be told.
  static bool IsCertificateRevoked(platform::NativeHandle certificate, platform::NativeHandle crl);

  /// Asks the SSL chain policy. \param status  0, CERT_E_UNTRUSTEDROOT, CERT_E_CN_NO_MATCH or another error word.
  /// \param serverName  the name that the leaf must carry; without one, or with `ignoreName`, no name is checked.
  /// False when the question could not be asked; `status` is 0 then.
  static bool VerifyCertChain(platform::NativeHandle chain, std::uint32_t& status, bool allowUnknownCa, bool ignoreName,
                              const std::wstring& serverName = {});

  /// Builds the certificate's chain out of the list with revocation checked for all of it, for server authentication.
  /// \param errorStatus,infoStatus  the trust status of the chain. False when no chain could be built; both are 0 then.
  static bool VerifyCertRevocation(const std::vector<platform::CertificateHandle>& certificates,
                                   platform::NativeHandle certificate, std::uint32_t& errorStatus,
                                   std::uint32_t& infoStatus);

  /// SHA-256 of the certificate's DER encoding, 32 bytes; empty when there is no certificate or it cannot be hashed.
  static std::vector<std::byte> GetThumbprintBinary(platform::NativeHandle certificate);

  /// That digest in upper-case hexadecimal pairs joined by colons; empty when there is none.
  static std::string GetThumbprint(platform::NativeHandle certificate);

  /// The thumbprint of each certificate in order; one that cannot be hashed is left out.
  static std::vector<std::string> GetThumbprints(const std::vector<platform::NativeHandle>& certificates);
};
