// What a test describes: certificates, chains and CRLs, and the handles to them.
#include "tests/sim/certificate_handles.h"

namespace sim {

std::string Certificates::crlText(FileTime nextUpdate, const std::vector<std::string>& revoked) {
  std::string text = "CRL " + std::to_string(nextUpdate) + "\n";
  for (const auto& certificate : revoked) {
    text += certificate + "\n";
  }
  return text;
}

void Certificates::know(const ServerChain& chain) {
  const Guard guard(kernel_.mutex);
  if (!chain.certificates.empty()) {
    known_[chain.certificates.front().der] = chain;
  }
}

CertificateHandle Certificates::certificateOf(const CertificateSpec& about) {
  const Guard guard(kernel_.mutex);
  return CertificateHandle(addCertificate(about));
}

ChainHandle Certificates::chainOf(const ServerChain& chain) {
  const Guard guard(kernel_.mutex);
  return ChainHandle(addChain(chain, chain.trustError()));
}

NativeHandle Certificates::addCertificate(const CertificateSpec& about) {
  const auto found = known_.find(about.der);
  return add(about, found == known_.end() ? std::vector{about} : found->second.certificates, false);
}

NativeHandle Certificates::addChain(const ServerChain& chain, std::uint32_t errorStatus, std::uint32_t infoStatus) {
  auto object = std::make_shared<ChainObject>();
  object->shown = chain;
  object->errorStatus = errorStatus;
  object->infoStatus = infoStatus;
  for (const auto& about : chain.certificates) {
    object->certificates.push_back(add(about, chain.certificates, true));
  }
  return kernel_.add(object);
}

NativeHandle Certificates::add(const CertificateSpec& about, const std::vector<CertificateSpec>& peers,
                               bool dependent) {
  auto object = std::make_shared<CertificateObject>();
  object->dependent = dependent;
  object->about = about;
  object->extension = extensionOf(about);
  for (const auto& peer : peers) {
    object->content.insert(peer.der);
  }
  return kernel_.add(object);
}

/// Returns the value of the certificate's extension, which no other certificate has; empty without an extension.
std::vector<std::byte> Certificates::extensionOf(const CertificateSpec& about) {
  if (!about.hasExtensions || (!about.points && about.crlUrls.empty())) {
    return {};
  }
  DistributionPoint point{true, {}};
  for (const auto& url : about.crlUrls) {
    point.names.push_back({kAltNameUrl, url});
  }
  const std::string value = "distribution points " + std::to_string(extensions_.size());
  extensions_[value] = about.points.value_or(std::vector{point});
  const auto bytes = std::as_bytes(std::span(value));
  return {bytes.begin(), bytes.end()};
}

}  // namespace sim
