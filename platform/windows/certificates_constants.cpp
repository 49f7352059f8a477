// Compares the neutral constants and layouts of the certificates with the platform's own. CERT_CHAIN_POLICY_SSL is a
// pointer made from a number, which no static_assert can read: the program platform_check compares it while it runs.

#include <string_view>

#include "platform/windows/certificate_contexts.h"
#include "platform/windows/windows_certificates.h"

namespace platform {

static_assert(std::is_same_v<HCERTSTORE, NativeHandle>);

static_assert(kEncodingX509Pkcs7 == (X509_ASN_ENCODING | PKCS_7_ASN_ENCODING));
static_assert(kCryptStringBase64Any == CRYPT_STRING_BASE64_ANY);
static_assert(kStoreAddReplaceExisting == CERT_STORE_ADD_REPLACE_EXISTING);
static_assert(kAltNameUrl == CERT_ALT_NAME_URL);
static_assert(kNameRdn == CERT_NAME_RDN_TYPE);
static_assert(std::string_view(szOID_CRL_DIST_POINTS) == kOidCrlDistributionPoints);
static_assert(std::string_view(szOID_PKIX_KP_SERVER_AUTH) == kOidServerAuth);
static_assert(std::string_view(szOID_SERVER_GATED_CRYPTO) == kOidServerGatedCrypto);
static_assert(std::string_view(szOID_SGC_NETSCAPE) == kOidNetscapeServerGatedCrypto);

static_assert(kChainCacheEndCert == CERT_CHAIN_CACHE_END_CERT);
static_assert(kChainCacheOnlyUrlRetrieval == CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL);
static_assert(kChainRevocationCheckChain == CERT_CHAIN_REVOCATION_CHECK_CHAIN);
static_assert(kChainPolicyAllowUnknownCa == CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG);
static_assert(kAuthTypeServer == AUTHTYPE_SERVER);
static_assert(kCertEUntrustedRoot == static_cast<std::uint32_t>(CERT_E_UNTRUSTEDROOT));
static_assert(kTrustIsPartialChain == CERT_TRUST_IS_PARTIAL_CHAIN);
static_assert(kCertEChaining == static_cast<std::uint32_t>(CERT_E_CHAINING));
static_assert(kCertECnNoMatch == static_cast<std::uint32_t>(CERT_E_CN_NO_MATCH));

// The sizes that the program states in cbSize.
static_assert(sizeof(CERT_CHAIN_PARA) == 96 && sizeof(CERT_CHAIN_POLICY_PARA) == 16);
static_assert(sizeof(CERT_CHAIN_POLICY_STATUS) == 24 && sizeof(SSL_EXTRA_CERT_CHAIN_POLICY_PARA) == 24);

}  // namespace platform
