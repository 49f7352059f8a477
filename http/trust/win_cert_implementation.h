#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/certificates.h"
#include "platform/handle.h"

/// Operations on certificates, chains and CRLs of the platform. The contexts that are given stay the caller's.
/// Stateless; any thread. A failure is logged, and reported by the result: null, an empty list or text, false.
/// Questions of revocation fail closed. CORE::coreException "OutOfMem" is the only exception.
///
/// VerifyCertChain stands in win_cert_policy.cpp; the three questions of revocation stand in win_cert_revocation.cpp.
class WinCertImplementation {
 public:
  /// A certificate of a chain, which stays the chain's, and the URLs of its CRLs (UTF-8, in their order).
  struct CertificateUrls {
    platform::NativeHandle certificate = nullptr;
    std::vector<std::string> urls;
  };

  /// Reads a certificate from PEM or bare base64 text; null when it is neither.
  /// kept: the program is given no certificates.
  static platform::CertificateHandle ConvertPEMToCertCtx(std::string_view text);

  /// Duplicates every certificate of the first simple chain, leaf first: all of them or none.
  /// \param asLive  makes no difference.
  static std::vector<platform::CertificateHandle> ExtractCertificatesFromChain(platform::NativeHandle chain,
                                                                               bool asLive);

  /// Returns the URLs of the certificate's CRL distribution points, in their order.
  static std::vector<std::string> ExtractCrlUrlsFromCert(platform::NativeHandle certificate);

  /// Returns the same for each certificate of the chain, leaf first.
  static std::vector<CertificateUrls> ExtractCrlUrlsFromChain(platform::NativeHandle chain);

  /// Returns whether the CRL's next update is in the past. True, too, for a CRL that cannot be used, and for one that
  /// names no next update.
  static bool IsCRLExpired(platform::NativeHandle crl);

  /// Returns whether the CRL lists the certificate. True, too, when the platform cannot tell.
  static bool IsCertificateRevoked(platform::NativeHandle certificate, platform::NativeHandle crl);

  /// Asks the platform's SSL policy about the chain.
  /// \param status  0, CERT_E_UNTRUSTEDROOT, CERT_E_CN_NO_MATCH or another error number.
  /// \param serverName  the name that the leaf must carry; without one, or with `ignoreName`, no name is checked.
  /// \return false when the policy could not be asked; `status` is 0 then.
  /// Source: CertVerifyCertificateChainPolicy, CERT_CHAIN_POLICY_SSL.
  static bool VerifyCertChain(platform::NativeHandle chain, std::uint32_t& status, bool allowUnknownCa, bool ignoreName,
                              const std::wstring& serverName = {});

  /// Builds the certificate's chain out of the list, for server authentication, with revocation checked for all of it.
  /// May wait for the network.
  /// \param retrievalTimeout  milliseconds for each retrieval; 0 means the platform's own limit.
  /// \param errorStatus,infoStatus  the trust status of the chain.
  /// \return false when no chain could be built; both are 0 then.
  static bool VerifyCertRevocation(const std::vector<platform::CertificateHandle>& certificates,
                                   platform::NativeHandle certificate, std::uint32_t retrievalTimeout,
                                   std::uint32_t& errorStatus, std::uint32_t& infoStatus);

  /// Returns the usages of a server: server authentication, and the two older ones that servers with step-up
  /// cryptography carry instead.
  static std::vector<std::string> serverUsages();

  /// Returns the SHA-256 of the certificate's DER encoding, 32 bytes; empty when there is no certificate or it cannot
  /// be hashed.
  static std::vector<std::byte> GetThumbprintBinary(platform::NativeHandle certificate);

  /// Returns that digest in upper-case hexadecimal pairs joined by colons; empty when there is none.
  static std::string GetThumbprint(platform::NativeHandle certificate);

  /// Returns the thumbprint of each certificate in order; one that cannot be hashed is left out.
  static std::vector<std::string> GetThumbprints(const std::vector<platform::NativeHandle>& certificates);
};
