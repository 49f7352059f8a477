#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock.h"
#include "platform/handle.h"
#include "platform/result.h"

namespace platform {

inline constexpr std::uint32_t kEncodingX509Pkcs7 = 0x10001;  ///< X509_ASN_ENCODING | PKCS_7_ASN_ENCODING
inline constexpr std::uint32_t kCryptStringBase64Any = 6;     ///< CRYPT_STRING_BASE64_ANY
inline constexpr std::uint32_t kStoreAddReplaceExisting = 3;  ///< CERT_STORE_ADD_REPLACE_EXISTING
inline constexpr std::uint32_t kAltNameUrl = 7;               ///< CERT_ALT_NAME_URL
inline constexpr std::uint32_t kNameRdn = 2;                  ///< CERT_NAME_RDN_TYPE

// Flags of CertGetCertificateChain.
inline constexpr std::uint32_t kChainCacheEndCert = 0x1;
inline constexpr std::uint32_t kChainCacheOnlyUrlRetrieval = 0x4;
inline constexpr std::uint32_t kChainRevocationCheckChain = 0x20000000;

// CertVerifyCertificateChainPolicy: policy, flag, and what it may find.
inline constexpr std::uint32_t kChainPolicySsl = 4;
inline constexpr std::uint32_t kChainPolicyAllowUnknownCa = 0x10;
inline constexpr std::uint32_t kAuthTypeServer = 2;
inline constexpr std::uint32_t kCertEUntrustedRoot = 0x800B0109;
inline constexpr std::uint32_t kCertECnNoMatch = 0x800B010F;

void freeCertificate(NativeHandle certificate);
void freeChain(NativeHandle chain);
void freeCrl(NativeHandle crl);
void closeStore(NativeHandle store);

/// Owner of a PCCERT_CONTEXT, freed with CertFreeCertificateContext.
using CertificateHandle = UniqueHandle<NullHandleTraits<NativeHandle, freeCertificate>>;
/// Owner of a PCCERT_CHAIN_CONTEXT, freed with CertFreeCertificateChain.
using ChainHandle = UniqueHandle<NullHandleTraits<NativeHandle, freeChain>>;
/// Owner of a PCCRL_CONTEXT, freed with CertFreeCRLContext.
using CrlHandle = UniqueHandle<NullHandleTraits<NativeHandle, freeCrl>>;
/// Owner of an HCERTSTORE, closed with CertCloseStore.
using StoreHandle = UniqueHandle<NullHandleTraits<NativeHandle, closeStore>>;

/// The fields of a CERT_CONTEXT that the program reads.
struct CertificateView {
  std::span<const std::byte> encoded;  ///< DER, the context's own
  bool hasInfo = false;
  std::uint32_t extensions = 0;  ///< how many
  NativeHandle store = nullptr;  ///< the context's own; null when it has none
};

/// The fields of a CERT_CHAIN_CONTEXT that the program reads.
struct ChainView {
  std::uint32_t errorStatus = 0;  ///< of the chain's own trust status
  std::uint32_t infoStatus = 0;
  std::size_t simpleChains = 0;
  std::vector<NativeHandle> certificates;  ///< of the first simple chain, leaf first; the chain's own
};

/// The fields of a CRL_CONTEXT that the program reads.
struct CrlView {
  bool hasInfo = false;
  FileTime nextUpdate = 0;  ///< 0 when the CRL names none
};

/// One name of a distribution point; the text of other types than kAltNameUrl is not read.
struct AlternativeName {
  std::uint32_t type = 0;
  std::wstring url;
};

/// One CRL_DIST_POINT.
struct DistributionPoint {
  bool hasFullName = false;
  std::vector<AlternativeName> names;
};

/// Parameters of the SSL chain policy.
struct SslPolicy {
  std::uint32_t flags = 0;     ///< CERT_CHAIN_POLICY_PARA
  std::uint32_t authType = 0;  ///< SSL_EXTRA_CERT_CHAIN_POLICY_PARA from here on
  std::uint32_t checks = 0;    ///< security flags of WinINet: 0x1000 switches the name check off
  std::wstring serverName;     ///< empty passes none
};

/// Certificates of the platform. Every operation is one platform call of that name; any thread may call. Contexts that
/// are given stay the caller's; null is refused with kErrorInvalidParameter.
class Certificates {
 public:
  virtual ~Certificates() = default;

  /// value: bytes needed (empty buffer) or written.
  virtual Result<std::uint32_t> CryptStringToBinaryA(std::string_view text, std::uint32_t flags,
                                                     std::span<std::byte> buffer) = 0;
  virtual Result<CertificateHandle> CertCreateCertificateContext(std::uint32_t encoding,
                                                                 std::span<const std::byte> encoded) = 0;
  virtual Result<CrlHandle> CertCreateCRLContext(std::uint32_t encoding, std::span<const std::byte> encoded) = 0;
  virtual Result<CertificateHandle> CertDuplicateCertificateContext(NativeHandle certificate) = 0;
  virtual void CertFreeCertificateContext(NativeHandle certificate) = 0;
  virtual void CertFreeCertificateChain(NativeHandle chain) = 0;
  virtual void CertFreeCRLContext(NativeHandle crl) = 0;

  /// The value of the first extension of that object identifier ("2.5.29.31"); it is the context's own.
  virtual Result<std::span<const std::byte>> CertFindExtension(const std::string& oid, NativeHandle certificate) = 0;
  /// Decodes CRL distribution points with the structure type "2.5.29.31" into memory that the platform allocates, which
  /// is copied and freed here. value: nothing when the call succeeded with a null result.
  virtual Result<std::optional<std::vector<DistributionPoint>>> CryptDecodeObjectEx(
      std::uint32_t encoding, std::span<const std::byte> encoded) = 0;
  /// The subject's name of that type, relative names as X.500 writes them. Gives the characters written with the
  /// terminator; a longer name is cut.
  virtual std::uint32_t CertGetNameStringW(NativeHandle certificate, std::uint32_t type, std::span<wchar_t> buffer) = 0;

  /// An empty store in memory (CERT_STORE_PROV_MEMORY).
  virtual Result<StoreHandle> CertOpenStore() = 0;
  virtual Status CertAddCertificateContextToStore(NativeHandle store, NativeHandle certificate,
                                                  std::uint32_t disposition) = 0;
  virtual void CertCloseStore(NativeHandle store) = 0;

  /// Builds a chain with the default engine, as of now. `usages`: enhanced key usages, matched with OR; none are asked
  /// for when it is empty.
  virtual Result<ChainHandle> CertGetCertificateChain(NativeHandle certificate, NativeHandle store,
                                                      const std::vector<std::string>& usages, std::uint32_t flags) = 0;
  /// value: the policy's error word; 0 means that the chain satisfies it.
  virtual Result<std::uint32_t> CertVerifyCertificateChainPolicy(std::uint32_t policy, NativeHandle chain,
                                                                 const SslPolicy& parameters) = 0;
  /// value: whether the CRL has an entry for the certificate.
  virtual Result<bool> CertFindCertificateInCRL(NativeHandle certificate, NativeHandle crl) = 0;

  // Reading contexts: no call of the platform. A null context gives an empty view.
  virtual CertificateView certificate(NativeHandle certificate) = 0;
  virtual ChainView chain(NativeHandle chain) = 0;
  virtual CrlView crl(NativeHandle crl) = 0;
};

}  // namespace platform
