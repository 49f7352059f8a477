#pragma once

#include "platform/certificates.h"

namespace platform {

/// The real Windows; each operation is the call of its name.
class WindowsCertificates final : public Certificates {
 public:
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
};

}  // namespace platform
