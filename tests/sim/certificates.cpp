// The platform's calls on the simulated certificates.
#include <openssl/evp.h>

#include <sstream>

#include "platform/winhttp.h"
#include "tests/sim/certificate_handles.h"

namespace sim {
namespace {

constexpr std::uint32_t kNotValidForUsage = 0x10;  // CERT_TRUST_IS_NOT_VALID_FOR_USAGE
constexpr ErrorCode kInvalidArgument = 0x80070057;
constexpr ErrorCode kBadEncode = 0x80092002;  // CRYPT_E_BAD_ENCODE
constexpr ErrorCode kBadTag = 0x8009310B;     // CRYPT_E_ASN1_BADTAG

std::string textOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Decodes a text in base64, with or without the first and last line of PEM.
std::string fromBase64(std::string_view text) {
  if (const auto begin = text.find("-----BEGIN "); begin != text.npos) {
    text = text.substr(text.find('\n', begin), text.find("-----END ") - text.find('\n', begin));
  }
  std::string bytes(text.size(), '\0');
  auto* const out = reinterpret_cast<unsigned char*>(bytes.data());
  const std::unique_ptr<EVP_ENCODE_CTX, void (*)(EVP_ENCODE_CTX*)> context(EVP_ENCODE_CTX_new(), EVP_ENCODE_CTX_free);
  int length = 0, rest = 0;
  EVP_DecodeInit(context.get());
  const int result = EVP_DecodeUpdate(context.get(), out, &length, reinterpret_cast<const unsigned char*>(text.data()),
                                      static_cast<int>(text.size()));
  refuseIf(result < 0 || EVP_DecodeFinal(context.get(), out + length, &rest) < 0, kErrorInvalidData);
  return bytes.substr(0, static_cast<std::size_t>(length + rest));
}

/// Reads what Certificates::crlText writes.
std::shared_ptr<CrlObject> parseCrl(const std::string& text) {
  auto crl = std::make_shared<CrlObject>();
  crl->hasInfo = text != Certificates::kCrlWithoutInfo;
  std::istringstream in(text);
  std::string word;
  refuseIf(crl->hasInfo && (!(in >> word >> crl->nextUpdate) || word != "CRL"), kBadEncode);
  while (crl->hasInfo && in >> word) {
    crl->revoked.push_back(word);
  }
  return crl;
}

}  // namespace

Result<std::uint32_t> Certificates::CryptStringToBinaryA(std::string_view text, std::uint32_t flags,
                                                         std::span<std::byte> buffer) {
  return kernel_.call(__func__, [&] {
    refuseIf(flags != kCryptStringBase64Any, kErrorInvalidData);
    const std::string bytes = fromBase64(text);
    refuseIf(!buffer.empty() && buffer.size() < bytes.size(), kErrorMoreData);
    std::copy_n(std::as_bytes(std::span(bytes)).begin(), std::min(buffer.size(), bytes.size()), buffer.begin());
    return static_cast<std::uint32_t>(bytes.size());
  });
}

Result<CertificateHandle> Certificates::CertCreateCertificateContext(std::uint32_t encoding,
                                                                     std::span<const std::byte> encoded) {
  return kernel_.call(__func__, [&] {
    refuseIf(encoding != kEncodingX509Pkcs7, kInvalidArgument);
    refuseIf(encoded.empty(), kBadTag);
    return CertificateHandle(addCertificate({textOf(encoded)}));
  });
}

Result<CertificateHandle> Certificates::CertDuplicateCertificateContext(NativeHandle certificate) {
  return kernel_.callOn<CertificateObject>(__func__, certificate, [&](CertificateObject& object) {
    auto copy = std::make_shared<CertificateObject>(object);
    copy->dependent = false;
    return kernel_.opened<CertificateHandle>(std::move(copy));
  });
}

void Certificates::CertFreeCertificateContext(NativeHandle certificate) {
  kernel_.close<CertificateObject>(__func__, certificate);
}

void Certificates::CertFreeCertificateChain(NativeHandle chain) {
  kernel_.faults.note(__func__);
  const Guard guard(kernel_.mutex);
  if (const auto object = kernel_.take<ChainObject>(chain, __func__)) {
    std::ranges::for_each(object->certificates, [&](auto handle) { kernel_.remove(handle); });
  }
}

Result<std::span<const std::byte>> Certificates::CertFindExtension(const std::string& oid, NativeHandle certificate) {
  return kernel_.callOn<CertificateObject>(__func__, certificate, [&](CertificateObject& object) {
    refuseIf(oid != kOidCrlDistributionPoints || object.extension.empty(), 0);
    return std::span<const std::byte>(object.extension);
  });
}

Result<std::optional<std::vector<DistributionPoint>>> Certificates::CryptDecodeObjectEx(
    std::uint32_t encoding, std::span<const std::byte> encoded) {
  return kernel_.call(__func__, [&] {
    const auto found = extensions_.find(textOf(encoded));
    refuseIf(found == extensions_.end() || encoding != kEncodingX509Pkcs7, kBadTag);
    return found->second;
  });
}

std::uint32_t Certificates::CertGetNameStringW(NativeHandle certificate, std::uint32_t type,
                                               std::span<wchar_t> buffer) {
  const auto name = kernel_.callOn<CertificateObject>(__func__, certificate, [&](CertificateObject& object) {
    const std::wstring text(object.about.der.begin(), object.about.der.end());
    return type == kNameRdn ? L"CN=" + text : L"";
  });
  if (buffer.empty()) {
    return static_cast<std::uint32_t>(name.value.size() + 1);
  }
  const std::wstring text = name.value.substr(0, buffer.size() - 1);  // empty without a name, as on Windows
  *std::ranges::copy(text, buffer.begin()).out = L'\0';
  return static_cast<std::uint32_t>(text.size() + 1);
}

Result<StoreHandle> Certificates::CertOpenStore() {
  return kernel_.call(__func__, [&] { return kernel_.opened<StoreHandle>(std::make_shared<StoreObject>()); });
}

Status Certificates::CertAddCertificateContextToStore(NativeHandle store, NativeHandle certificate,
                                                      std::uint32_t disposition) {
  const char* const name = __func__;
  return kernel_.callOn<StoreObject>(name, store, [&](StoreObject& into) {
    refuseIf(disposition != kStoreAddReplaceExisting, kErrorInvalidParameter);
    into.content.insert(kernel_.need<CertificateObject>(certificate, name)->about.der);
  });
}

void Certificates::CertCloseStore(NativeHandle store) { kernel_.close<StoreObject>(__func__, store); }

Result<ChainHandle> Certificates::CertGetCertificateChain(NativeHandle certificate, NativeHandle store,
                                                          const std::vector<std::string>& usages, std::uint32_t flags,
                                                          std::uint32_t retrievalTimeout) {
  const char* const name = __func__;
  return kernel_.callOn<CertificateObject>(name, certificate, [&](CertificateObject& leaf) {
    chainsBuilt_.push_back({flags, usages.size(), retrievalTimeout});
    const auto from = kernel_.need<Store>(store, name);
    const auto known = known_.find(leaf.about.der);
    ServerChain chain = known != known_.end() ? known->second : ServerChain{{leaf.about}};
    const auto missing = std::find_if(chain.certificates.begin() + 1, chain.certificates.end(),
                                      [&](const auto& about) { return !from->content.contains(about.der); });
    const bool partial = known == known_.end() || missing != chain.certificates.end();
    chain.certificates.erase(missing, chain.certificates.end());
    const bool checked = (flags & kChainRevocationCheckChain) != 0;
    const bool forServers = usages.empty() || std::ranges::count(usages, kOidServerAuth) != 0;
    const std::uint32_t error = (partial ? kTrustIsPartialChain : chain.trustError()) |
                                (forServers ? 0 : kNotValidForUsage) | (checked ? chain.revocationError : 0);
    return ChainHandle(addChain(chain, error, checked ? chain.revocationInfo : 0));
  });
}

Result<std::uint32_t> Certificates::CertVerifyCertificateChainPolicy(std::uint32_t policy, NativeHandle chain,
                                                                     const SslPolicy& parameters) {
  return kernel_.callOn<ChainObject>(__func__, chain, [&](ChainObject& object) {
    refuseIf(policy != kChainPolicySsl || parameters.authType != kAuthTypeServer, kErrorInvalidParameter);
    serverNames_.push_back(parameters.serverName);
    const ServerChain& shown = object.shown;
    const bool isPartial = (object.errorStatus & kTrustIsPartialChain) != 0;
    const bool allowsUnknown = (parameters.flags & kChainPolicyAllowUnknownCa) != 0;
    const bool checksName =
        !parameters.serverName.empty() && (parameters.checks & kSecurityFlagIgnoreCertCnInvalid) == 0;
    return shown.policyStatus != 0                         ? shown.policyStatus
           : !allowsUnknown && isPartial && !shown.partial ? kCertEChaining
           : !allowsUnknown && !shown.trustedRoot          ? kCertEUntrustedRoot
           : checksName && !shown.nameMatches              ? kCertECnNoMatch
                                                           : 0;
  });
}

Result<CrlHandle> Certificates::CertCreateCRLContext(std::uint32_t encoding, std::span<const std::byte> encoded) {
  return kernel_.call(__func__, [&] {
    refuseIf(encoding != kEncodingX509Pkcs7, kInvalidArgument);
    return kernel_.opened<CrlHandle>(parseCrl(textOf(encoded)));
  });
}

void Certificates::CertFreeCRLContext(NativeHandle crl) { kernel_.close<CrlObject>(__func__, crl); }

Result<bool> Certificates::CertFindCertificateInCRL(NativeHandle certificate, NativeHandle crl) {
  const char* const name = __func__;
  return kernel_.callOn<CertificateObject>(name, certificate, [&](CertificateObject& object) {
    return std::ranges::count(kernel_.need<CrlObject>(crl, name)->revoked, object.about.der) != 0;
  });
}

// These read contexts. A null context has an empty view.

CertificateView Certificates::certificate(NativeHandle certificate) {
  const Guard guard(kernel_.mutex);
  const auto object = certificate == nullptr ? nullptr : kernel_.get<CertificateObject>(certificate, __func__);
  if (object == nullptr) {
    return {};
  }
  const CertificateSpec& about = object->about;
  return {std::as_bytes(std::span(about.der)), about.hasInfo, about.hasExtensions ? 1u : 0u, certificate};
}

ChainView Certificates::chain(NativeHandle chain) {
  const Guard guard(kernel_.mutex);
  const auto object = chain == nullptr ? nullptr : kernel_.get<ChainObject>(chain, __func__);
  if (object == nullptr) {
    return {};
  }
  return {object->errorStatus, object->infoStatus, object->certificates.empty() ? 0u : 1u, object->certificates};
}

CrlView Certificates::crl(NativeHandle crl) {
  const Guard guard(kernel_.mutex);
  const auto object = crl == nullptr ? nullptr : kernel_.get<CrlObject>(crl, __func__);
  return object == nullptr ? CrlView{} : CrlView{object->hasInfo, object->nextUpdate};
}

}  // namespace sim
