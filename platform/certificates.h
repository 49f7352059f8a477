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

// Object identifiers (szOID_...): the extension that lists where CRLs are, and usages of a certificate.
inline constexpr const char* kOidCrlDistributionPoints = "2.5.29.31";
inline constexpr const char* kOidServerAuth = "1.3.6.1.5.5.7.3.1";
inline constexpr const char* kOidServerGatedCrypto = "1.3.6.1.4.1.311.10.3.3";
inline constexpr const char* kOidNetscapeServerGatedCrypto = "2.16.840.1.113730.4.1";  ///< szOID_SGC_NETSCAPE

// Flags of CertGetCertificateChain (CERT_CHAIN_...).
inline constexpr std::uint32_t kChainCacheEndCert = 0x1;
inline constexpr std::uint32_t kChainCacheOnlyUrlRetrieval = 0x4;
inline constexpr std::uint32_t kChainRevocationCheckChain = 0x20000000;

inline constexpr std::uint32_t kTrustIsPartialChain = 0x10000;  ///< CERT_TRUST_IS_PARTIAL_CHAIN, of an error status

// CertVerifyCertificateChainPolicy: the policy, its flag and parameter, and three of the errors that it may find.
inline constexpr std::uint32_t kChainPolicySsl = 4;                ///< CERT_CHAIN_POLICY_SSL
inline constexpr std::uint32_t kChainPolicyAllowUnknownCa = 0x10;  ///< CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG
inline constexpr std::uint32_t kAuthTypeServer = 2;                ///< AUTHTYPE_SERVER
inline constexpr std::uint32_t kCertEUntrustedRoot = 0x800B0109;   ///< CERT_E_UNTRUSTEDROOT
inline constexpr std::uint32_t kCertEChaining = 0x800B010A;        ///< CERT_E_CHAINING
inline constexpr std::uint32_t kCertECnNoMatch = 0x800B010F;       ///< CERT_E_CN_NO_MATCH

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
  std::span<const std::byte> encoded;  ///< DER; the memory belongs to the context
  bool hasInfo = false;                ///< whether the context holds the decoded certificate
  std::uint32_t extensions = 0;        ///< number of extensions
  NativeHandle store = nullptr;        ///< belongs to the context; null when it has none
};

/// The fields of a CERT_CHAIN_CONTEXT that the program reads.
struct ChainView {
  std::uint32_t errorStatus = 0;           ///< dwErrorStatus of the whole chain's trust status
  std::uint32_t infoStatus = 0;            ///< dwInfoStatus of it
  std::size_t simpleChains = 0;            ///< number of simple chains
  std::vector<NativeHandle> certificates;  ///< of the first simple chain, leaf first; they belong to the chain
};

/// The fields of a CRL_CONTEXT that the program reads.
struct CrlView {
  bool hasInfo = false;     ///< whether the context holds the decoded CRL
  FileTime nextUpdate = 0;  ///< 0 when the CRL names none
};

/// One name of a distribution point.
struct AlternativeName {
  std::uint32_t type = 0;
  std::wstring url;  ///< read only when the type is kAltNameUrl, otherwise empty
};

/// The fields of a CRL_DIST_POINT.
struct DistributionPoint {
  bool hasFullName = false;
  std::vector<AlternativeName> names;  ///< empty without a full name
};

/// The parameters of the SSL chain policy. The first is a field of CERT_CHAIN_POLICY_PARA, the others are fields of
/// SSL_EXTRA_CERT_CHAIN_POLICY_PARA.
struct SslPolicy {
  std::uint32_t flags = 0;
  std::uint32_t authType = 0;
  std::uint32_t checks = 0;  ///< what is not checked: security flags (kSecurityFlagIgnoreCertCnInvalid: the name)
  std::wstring serverName;   ///< empty passes none
};

/// Certificates of the platform. Every operation is one platform call of that name; any thread may call. The caller
/// keeps the contexts that it passes; a null context is refused with kErrorInvalidParameter.
class Certificates {
 public:
  virtual ~Certificates() = default;

  /// Decodes a text.
  /// \return the bytes needed (for an empty buffer) or written.
  virtual Result<std::uint32_t> CryptStringToBinaryA(std::string_view text, std::uint32_t flags,
                                                     std::span<std::byte> buffer) = 0;
  virtual Result<CertificateHandle> CertCreateCertificateContext(std::uint32_t encoding,
                                                                 std::span<const std::byte> encoded) = 0;
  virtual Result<CrlHandle> CertCreateCRLContext(std::uint32_t encoding, std::span<const std::byte> encoded) = 0;
  virtual Result<CertificateHandle> CertDuplicateCertificateContext(NativeHandle certificate) = 0;
  virtual void CertFreeCertificateContext(NativeHandle certificate) = 0;
  virtual void CertFreeCertificateChain(NativeHandle chain) = 0;
  virtual void CertFreeCRLContext(NativeHandle crl) = 0;

  /// Finds the first extension of that object identifier (kOidCrlDistributionPoints).
  /// \return its value; the memory belongs to the context.
  virtual Result<std::span<const std::byte>> CertFindExtension(const std::string& oid, NativeHandle certificate) = 0;
  /// Decodes the value of an extension of CRL distribution points. The platform allocates memory for the result, which
  /// is copied and freed here.
  /// \return nothing when the call succeeded with a null result.
  virtual Result<std::optional<std::vector<DistributionPoint>>> CryptDecodeObjectEx(
      std::uint32_t encoding, std::span<const std::byte> encoded) = 0;
  /// Reads the subject's name of that type; relative names are written as X.500 does. A name longer than the buffer is
  /// cut.
  /// \return the characters written, with the terminator.
  virtual std::uint32_t CertGetNameStringW(NativeHandle certificate, std::uint32_t type, std::span<wchar_t> buffer) = 0;

  /// Opens an empty store in memory (CERT_STORE_PROV_MEMORY).
  virtual Result<StoreHandle> CertOpenStore() = 0;
  virtual Status CertAddCertificateContextToStore(NativeHandle store, NativeHandle certificate,
                                                  std::uint32_t disposition) = 0;
  virtual void CertCloseStore(NativeHandle store) = 0;

  /// Builds a chain with the default engine, valid at the present time.
  /// \param usages  enhanced key usages, of which the chain must allow one; empty asks for none.
  /// \param retrievalTimeout  milliseconds for each retrieval of a CRL or an OCSP answer; 0 means the platform's limit.
  virtual Result<ChainHandle> CertGetCertificateChain(NativeHandle certificate, NativeHandle store,
                                                      const std::vector<std::string>& usages, std::uint32_t flags,
                                                      std::uint32_t retrievalTimeout) = 0;
  /// Checks a chain against a policy.
  /// \return the policy's error; 0 when the chain satisfies it.
  virtual Result<std::uint32_t> CertVerifyCertificateChainPolicy(std::uint32_t policy, NativeHandle chain,
                                                                 const SslPolicy& parameters) = 0;
  /// \return whether the CRL has an entry for the certificate.
  virtual Result<bool> CertFindCertificateInCRL(NativeHandle certificate, NativeHandle crl) = 0;

  // These read contexts and call nothing of the platform. A null context has an empty view.
  virtual CertificateView certificate(NativeHandle certificate) = 0;
  virtual ChainView chain(NativeHandle chain) = 0;
  virtual CrlView crl(NativeHandle crl) = 0;
};

}  // namespace platform
