#pragma once

#include <optional>
#include <tuple>

#include "platform/certificates.h"
#include "tests/sim/kernel.h"

namespace sim {

/// A certificate as a test describes it. Any text stands for its DER bytes; the text identifies the certificate.
struct CertificateSpec {
  std::string der;
  std::vector<std::wstring> crlUrls = {};  ///< one distribution point with these names, when not empty
  bool hasInfo = true;
  bool hasExtensions = true;
  /// What the decoding returns instead of a point with crlUrls; an inner value that is missing makes it return null.
  std::optional<std::optional<std::vector<DistributionPoint>>> points = std::nullopt;
};

/// What a server shows in the handshake, and what Windows' checks of it find.
struct ServerChain {
  std::vector<CertificateSpec> certificates;  ///< leaf first
  bool trustedRoot = true;                    ///< if not: the SSL policy fails with CERT_E_UNTRUSTEDROOT unless allowed
  bool nameMatches = true;                    ///< if not: it fails with CERT_E_CN_NO_MATCH when it gets a server name
  std::uint32_t policyStatus = 0;             ///< another error of the policy, which comes before those two
  std::uint32_t revocationError = 0;          ///< added to the trust error of a chain built with revocation checks
  std::uint32_t revocationInfo = 0;
  bool silent = false;   ///< the handshake never ends
  bool partial = false;  ///< the root is neither sent nor installed, which the SSL policy lets pass, as Wine's does
  /// Returns the error of the chain's trust status.
  std::uint32_t trustError() const { return partial ? kTrustIsPartialChain : trustedRoot ? 0 : 0x20; }
};

/// CryptoAPI for certificates that a test describes. It knows a chain by its leaf's bytes once a server has shown the
/// chain or know() was called. A CRL is a text that crlText() returns; anything else fails with error 0x80092002.
class Certificates : public platform::Certificates {
 public:
  explicit Certificates(Kernel& kernel) : kernel_(kernel) {}

  /// Returns the bytes of a CRL that lists certificates by their bytes. A next update of 0 means none.
  static std::string crlText(FileTime nextUpdate, const std::vector<std::string>& revoked = {});
  static constexpr std::string_view kCrlWithoutInfo = "CRL without info";  ///< its context has no decoded CRL

  void know(const ServerChain& chain);
  /// Makes contexts for tests of the functions that take them.
  CertificateHandle certificateOf(const CertificateSpec& about);
  ChainHandle chainOf(const ServerChain& chain);
  /// Make contexts for services that return them. Lock held.
  NativeHandle addCertificate(const CertificateSpec& about);
  NativeHandle addChain(const ServerChain& chain, std::uint32_t errorStatus = 0, std::uint32_t infoStatus = 0);

  /// The flags, the number of usages and the time limit of a CertGetCertificateChain.
  using ChainCall = std::tuple<std::uint32_t, std::size_t, std::uint32_t>;
  /// Every such call, and the server names that were passed to the SSL policy, in order.
  std::vector<ChainCall> chainsBuilt() const { return kernel_.copyOf(chainsBuilt_); }
  std::vector<std::wstring> serverNames() const { return kernel_.copyOf(serverNames_); }

  Result<std::uint32_t> CryptStringToBinaryA(std::string_view text, std::uint32_t flags,
                                             std::span<std::byte> buffer) override;
  Result<CertificateHandle> CertCreateCertificateContext(std::uint32_t encoding,
                                                         std::span<const std::byte> encoded) override;
  Result<CrlHandle> CertCreateCRLContext(std::uint32_t encoding, std::span<const std::byte> encoded) override;
  Result<CertificateHandle> CertDuplicateCertificateContext(NativeHandle certificate) override;
  void CertFreeCertificateContext(NativeHandle certificate) override;
  void CertFreeCertificateChain(NativeHandle chain) override;
  void CertFreeCRLContext(NativeHandle crl) override;
  Result<std::span<const std::byte>> CertFindExtension(const std::string& oid, NativeHandle certificate) override;
  Result<std::optional<std::vector<DistributionPoint>>> CryptDecodeObjectEx(
      std::uint32_t encoding, std::span<const std::byte> encoded) override;
  std::uint32_t CertGetNameStringW(NativeHandle certificate, std::uint32_t type, std::span<wchar_t> buffer) override;
  Result<StoreHandle> CertOpenStore() override;
  Status CertAddCertificateContextToStore(NativeHandle store, NativeHandle certificate,
                                          std::uint32_t disposition) override;
  void CertCloseStore(NativeHandle store) override;
  Result<ChainHandle> CertGetCertificateChain(NativeHandle certificate, NativeHandle store,
                                              const std::vector<std::string>& usages, std::uint32_t flags,
                                              std::uint32_t retrievalTimeout) override;
  Result<std::uint32_t> CertVerifyCertificateChainPolicy(std::uint32_t policy, NativeHandle chain,
                                                         const SslPolicy& parameters) override;
  Result<bool> CertFindCertificateInCRL(NativeHandle certificate, NativeHandle crl) override;
  CertificateView certificate(NativeHandle certificate) override;
  ChainView chain(NativeHandle chain) override;
  CrlView crl(NativeHandle crl) override;

 private:
  using Points = std::optional<std::vector<DistributionPoint>>;

  NativeHandle add(const CertificateSpec& about, const std::vector<CertificateSpec>& peers, bool dependent);
  std::vector<std::byte> extensionOf(const CertificateSpec& about);

  Kernel& kernel_;
  std::map<std::string, ServerChain> known_;  ///< by the leaf's bytes
  std::map<std::string, Points> extensions_;  ///< by the value that CertFindExtension returns
  std::vector<ChainCall> chainsBuilt_;
  std::vector<std::wstring> serverNames_;
};

}  // namespace sim
