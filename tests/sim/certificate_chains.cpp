// Stores, chains and what the simulated platform thinks of them.
#include <algorithm>
#include <sstream>

#include "tests/sim/certificate_objects.h"

namespace sim {
namespace {

constexpr std::uint32_t kPartialChain = 0x10000;   // CERT_TRUST_IS_PARTIAL_CHAIN
constexpr std::uint32_t kNotValidForUsage = 0x10;  // CERT_TRUST_IS_NOT_VALID_FOR_USAGE
constexpr std::uint32_t kCertEChaining = 0x800B010A;
constexpr const char* kServerAuthentication = "1.3.6.1.5.5.7.3.1";

constexpr platform::ErrorCode kInvalidArgument = 0x80070057;
constexpr platform::ErrorCode kBadEncode = 0x80092002;  // CRYPT_E_BAD_ENCODE

/// The opposite of Certificates::crlText.
std::shared_ptr<CrlObject> parseCrl(const std::string& text) {
  auto crl = std::make_shared<CrlObject>();
  crl->hasInfo = text != Certificates::kCrlWithoutInfo;
  std::istringstream in(text);
  std::string word;
  if (crl->hasInfo && (!(in >> word >> crl->nextUpdate) || word != "CRL" || in.get() != '\n')) {
    return nullptr;
  }
  for (std::size_t size = 0; crl->hasInfo && in >> size && in.get() == ':';) {
    std::string certificate(std::min(size, text.size()), '\0');
    in.read(certificate.data(), static_cast<std::streamsize>(certificate.size()));
    crl->revoked.push_back(certificate);
  }
  return crl;
}

}  // namespace

Result<platform::StoreHandle> Certificates::CertOpenStore() {
  return kernel_.call("CertOpenStore",
                      [&] { return kernel_.opened<platform::StoreHandle>(std::make_shared<StoreObject>()); });
}

Status Certificates::CertAddCertificateContextToStore(NativeHandle store, NativeHandle certificate,
                                                      std::uint32_t disposition) {
  return callOn<StoreObject>("CertAddCertificateContextToStore", store, [&](StoreObject& into) -> Status {
    if (certificate == nullptr || disposition != platform::kStoreAddReplaceExisting) {
      return Failure{platform::kErrorInvalidParameter};
    }
    const auto object = kernel_.get<CertificateObject>(certificate, "CertAddCertificateContextToStore");
    if (object == nullptr) {
      return Failure{platform::kErrorInvalidHandle};
    }
    into.certificates.insert(object->about.der);
    return kDone;
  });
}

void Certificates::CertCloseStore(NativeHandle store) {
  if (store != nullptr) {
    kernel_.close<StoreObject>("CertCloseStore", store);
  }
}

Result<platform::ChainHandle> Certificates::CertGetCertificateChain(NativeHandle certificate, NativeHandle store,
                                                                    const std::vector<std::string>& usages,
                                                                    std::uint32_t flags) {
  const auto work = [&](CertificateObject& leaf) -> Result<platform::ChainHandle> {
    chainFlags_.push_back(flags);
    const auto from = store != nullptr ? kernel_.get<StoreObject>(store, "CertGetCertificateChain") : nullptr;
    if (store != nullptr && from == nullptr) {
      return Failure{platform::kErrorInvalidHandle};
    }
    const auto known = known_.find(leaf.about.der);
    ServerChain chain = known != known_.end() ? known->second : ServerChain{{leaf.about}};
    const auto missing = std::find_if(chain.certificates.begin() + 1, chain.certificates.end(), [&](const auto& about) {
      return from == nullptr || !from->certificates.contains(about.der);
    });
    const bool partial = known == known_.end() || missing != chain.certificates.end();
    chain.certificates.erase(missing, chain.certificates.end());
    const bool checked = (flags & platform::kChainRevocationCheckChain) != 0;
    const bool forServers = usages.empty() || std::count(usages.begin(), usages.end(), kServerAuthentication) != 0;
    const std::uint32_t error = (partial ? kPartialChain : chain.trustError()) | (forServers ? 0 : kNotValidForUsage) |
                                (checked ? chain.revocationError : 0);
    return {true, platform::ChainHandle(addChain(chain, error, checked ? chain.revocationInfo : 0)), 0};
  };
  return callOn<CertificateObject>("CertGetCertificateChain", certificate, work);
}

Result<std::uint32_t> Certificates::CertVerifyCertificateChainPolicy(std::uint32_t policy, NativeHandle chain,
                                                                     const platform::SslPolicy& parameters) {
  const auto work = [&](ChainObject& object) -> Result<std::uint32_t> {
    if (policy != platform::kChainPolicySsl || parameters.authType != platform::kAuthTypeServer) {
      return Failure{platform::kErrorInvalidParameter};
    }
    serverNames_.push_back(parameters.serverName);
    const ServerChain& shown = object.shown;
    const bool allowsUnknown = (parameters.flags & platform::kChainPolicyAllowUnknownCa) != 0;
    const bool checksName = !parameters.serverName.empty() && (parameters.checks & 0x1000) == 0;
    std::uint32_t status = shown.policyStatus;
    if (status == 0 && !allowsUnknown) {
      status = (object.errorStatus & kPartialChain) != 0 ? kCertEChaining
               : shown.trustedRoot                       ? 0
                                                         : platform::kCertEUntrustedRoot;
    }
    if (status == 0 && checksName && !shown.nameMatches) {
      status = platform::kCertECnNoMatch;
    }
    return {true, status, 0};
  };
  return callOn<ChainObject>("CertVerifyCertificateChainPolicy", chain, work);
}

// Reading.

/// Lock held.
template <class T>
std::shared_ptr<T> Certificates::read(NativeHandle handle, const char* what) {
  return handle == nullptr ? nullptr : kernel_.get<T>(handle, what);
}

platform::CertificateView Certificates::certificate(NativeHandle certificate) {
  const Guard guard(kernel_.mutex);
  const auto object = read<CertificateObject>(certificate, "reading a certificate");
  if (object == nullptr) {
    return {};
  }
  const std::uint32_t extensions = !object->about.hasExtensions ? 0 : object->extension.empty() ? 1 : 2;
  return {object->encoded, object->about.hasInfo, extensions, object->store};
}

platform::ChainView Certificates::chain(NativeHandle chain) {
  const Guard guard(kernel_.mutex);
  const auto object = read<ChainObject>(chain, "reading a chain");
  if (object == nullptr) {
    return {};
  }
  return {object->errorStatus, object->infoStatus, object->certificates.empty() ? 0u : 1u, object->certificates};
}

platform::CrlView Certificates::crl(NativeHandle crl) {
  const Guard guard(kernel_.mutex);
  const auto object = read<CrlObject>(crl, "reading a CRL");
  return object == nullptr ? platform::CrlView{} : platform::CrlView{object->hasInfo, object->nextUpdate};
}

// The simulated CRLs, which are texts.

std::string Certificates::crlText(platform::FileTime nextUpdate, const std::vector<std::string>& revoked) {
  std::string text = "CRL " + std::to_string(nextUpdate) + "\n";
  for (const auto& certificate : revoked) {
    text += std::to_string(certificate.size()) + ":" + certificate;
  }
  return text;
}

Result<platform::CrlHandle> Certificates::CertCreateCRLContext(std::uint32_t encoding,
                                                               std::span<const std::byte> encoded) {
  return kernel_.call("CertCreateCRLContext", [&]() -> Result<platform::CrlHandle> {
    auto crl = encoding == platform::kEncodingX509Pkcs7
                   ? parseCrl({reinterpret_cast<const char*>(encoded.data()), encoded.size()})
                   : nullptr;
    if (crl == nullptr) {
      return Failure{encoding == platform::kEncodingX509Pkcs7 ? kBadEncode : kInvalidArgument};
    }
    return kernel_.opened<platform::CrlHandle>(std::move(crl));
  });
}

void Certificates::CertFreeCRLContext(NativeHandle crl) {
  if (crl != nullptr) {
    kernel_.close<CrlObject>("CertFreeCRLContext", crl);
  }
}

Result<bool> Certificates::CertFindCertificateInCRL(NativeHandle certificate, NativeHandle crl) {
  return callOn<CertificateObject>(
      "CertFindCertificateInCRL", certificate, [&](CertificateObject& object) -> Result<bool> {
        if (crl == nullptr) {
          return Failure{platform::kErrorInvalidParameter};
        }
        const auto list = kernel_.get<CrlObject>(crl, "CertFindCertificateInCRL");
        if (list == nullptr) {
          return Failure{platform::kErrorInvalidHandle};
        }
        return {true, std::count(list->revoked.begin(), list->revoked.end(), object.about.der) != 0, 0};
      });
}

}  // namespace sim
