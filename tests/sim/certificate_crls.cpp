// The simulated CRLs, which are texts.
#include <algorithm>
#include <sstream>

#include "tests/sim/certificate_objects.h"

namespace sim {
namespace {

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
        return {true, std::count(list->revoked.begin(), list->revoked.end(), object.spec.der) != 0, 0};
      });
}

}  // namespace sim
