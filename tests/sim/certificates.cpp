#include "tests/sim/certificates.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

#include "tests/sim/certificate_objects.h"

namespace sim {
namespace {

constexpr platform::ErrorCode kInvalidArgument = 0x80070057;
constexpr platform::ErrorCode kBadTag = 0x8009310B;  // CRYPT_E_ASN1_BADTAG

std::string textOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<std::byte> bytesOf(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}

/// The text between the first pair of PEM lines, or the whole of it when there are none.
std::optional<std::string_view> withoutPemLines(std::string_view text) {
  const auto begin = text.find("-----BEGIN ");
  if (begin == std::string_view::npos) {
    return text;
  }
  const auto first = text.find('\n', begin);
  const auto end = text.find("-----END ", begin);
  if (first == std::string_view::npos || end == std::string_view::npos || first > end) {
    return std::nullopt;
  }
  return text.substr(first, end - first);
}

std::optional<std::string> fromBase64(std::string_view text) {
  std::string digits(text);
  std::erase_if(digits,
                [](char character) { return character != '\0' && std::strchr(" \t\r\n", character) != nullptr; });
  const auto padding = digits.size() - std::min(digits.find_last_not_of('=') + 1, digits.size());
  std::string bytes(digits.size(), '\0');
  const int length =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                      reinterpret_cast<const unsigned char*>(digits.data()), static_cast<int>(digits.size()));
  if (length <= 0 || padding > 2) {
    return std::nullopt;
  }
  return bytes.substr(0, static_cast<std::size_t>(length) - padding);
}

std::vector<std::string> dersOf(const ServerChain& chain) {
  std::vector<std::string> ders;
  for (const auto& about : chain.certificates) {
    ders.push_back(about.der);
  }
  return ders;
}

}  // namespace

// What a test describes, and the handles to it.

void Certificates::know(const ServerChain& chain) {
  const Guard guard(kernel_.mutex);
  if (!chain.certificates.empty()) {
    known_[chain.certificates.front().der] = chain;
  }
}

platform::CertificateHandle Certificates::certificateOf(const CertificateSpec& about) {
  const Guard guard(kernel_.mutex);
  return platform::CertificateHandle(addCertificate(about));
}

platform::ChainHandle Certificates::chainOf(const ServerChain& chain) {
  const Guard guard(kernel_.mutex);
  return platform::ChainHandle(addChain(chain, chain.trustError()));
}

NativeHandle Certificates::addCertificate(const CertificateSpec& about) {
  return add(about, peersOf(about.der), false);
}

NativeHandle Certificates::addChain(const ServerChain& chain, std::uint32_t errorStatus, std::uint32_t infoStatus) {
  auto object = std::make_shared<ChainObject>();
  object->shown = chain;
  object->errorStatus = errorStatus;
  object->infoStatus = infoStatus;
  for (const auto& about : chain.certificates) {
    object->certificates.push_back(add(about, dersOf(chain), true));
  }
  return kernel_.add(object);
}

NativeHandle Certificates::add(const CertificateSpec& about, const std::vector<std::string>& peers, bool dependent) {
  auto object = std::make_shared<CertificateObject>();
  object->dependent = dependent;
  object->about = about;
  object->encoded = bytesOf(about.der);
  object->extension = extensionOf(about);
  object->peers = peers;
  auto store = std::make_shared<StoreObject>();
  store->dependent = true;
  store->certificates.insert(peers.begin(), peers.end());
  object->store = kernel_.add(store);
  return kernel_.add(object);
}

/// A value that no other certificate's extension has, or none.
std::vector<std::byte> Certificates::extensionOf(const CertificateSpec& about) {
  if (!about.hasExtensions || (!about.points && about.crlUrls.empty())) {
    return {};
  }
  Points points = about.points.value_or(std::nullopt);
  if (!about.points) {
    platform::DistributionPoint point{true, {}};
    for (const auto& url : about.crlUrls) {
      point.names.push_back({platform::kAltNameUrl, url});
    }
    points = {point};
  }
  const std::string value = "distribution points " + std::to_string(extensions_.size());
  extensions_[value] = points;
  return bytesOf(value);
}

const CertificateSpec* Certificates::knownSpec(const std::string& der) const {
  for (const auto& [leaf, chain] : known_) {
    for (const auto& about : chain.certificates) {
      if (about.der == der) {
        return &about;
      }
    }
  }
  return nullptr;
}

std::vector<std::string> Certificates::peersOf(const std::string& der) const {
  const auto found = known_.find(der);
  return found == known_.end() ? std::vector{der} : dersOf(found->second);
}

/// A certificate's handle goes, with that of its own store. Lock held.
void Certificates::drop(NativeHandle certificate) {
  if (const auto object = std::dynamic_pointer_cast<CertificateObject>(kernel_.find(certificate))) {
    kernel_.remove(object->store);
    kernel_.remove(certificate);
  }
}

// The platform's calls.

Result<std::uint32_t> Certificates::CryptStringToBinaryA(std::string_view text, std::uint32_t flags,
                                                         std::span<std::byte> buffer) {
  return kernel_.call("CryptStringToBinaryA", [&]() -> Result<std::uint32_t> {
    const auto body = withoutPemLines(text);
    const auto bytes = body && flags == platform::kCryptStringBase64Any ? fromBase64(*body) : std::nullopt;
    if (!bytes) {
      return Failure{platform::kErrorInvalidData};
    }
    const auto size = static_cast<std::uint32_t>(bytes->size());
    if (!buffer.empty() && buffer.size() < bytes->size()) {
      return {false, size, platform::kErrorMoreData};
    }
    if (!buffer.empty()) {
      const auto source = std::as_bytes(std::span(*bytes));
      std::copy(source.begin(), source.end(), buffer.begin());
    }
    return {true, size, 0};
  });
}

Result<platform::CertificateHandle> Certificates::CertCreateCertificateContext(std::uint32_t encoding,
                                                                               std::span<const std::byte> encoded) {
  return kernel_.call("CertCreateCertificateContext", [&]() -> Result<platform::CertificateHandle> {
    const std::string der = textOf(encoded);
    if (encoding != platform::kEncodingX509Pkcs7) {
      return Failure{kInvalidArgument};
    }
    if (der.empty() || der.compare(0, 4, "junk") == 0) {
      return Failure{kBadTag};
    }
    const CertificateSpec* const about = knownSpec(der);
    return {true, platform::CertificateHandle(addCertificate(about != nullptr ? *about : CertificateSpec{der})), 0};
  });
}

Result<platform::CertificateHandle> Certificates::CertDuplicateCertificateContext(NativeHandle certificate) {
  const auto work = [&](CertificateObject& object) -> Result<platform::CertificateHandle> {
    return {true, platform::CertificateHandle(add(object.about, object.peers, false)), 0};
  };
  return callOn<CertificateObject>("CertDuplicateCertificateContext", certificate, work);
}

void Certificates::CertFreeCertificateContext(NativeHandle certificate) {
  kernel_.faults.note("CertFreeCertificateContext");
  const Guard guard(kernel_.mutex);
  const auto object =
      certificate != nullptr ? kernel_.take<CertificateObject>(certificate, "CertFreeCertificateContext") : nullptr;
  if (object != nullptr) {
    kernel_.remove(object->store);
  }
}

void Certificates::CertFreeCertificateChain(NativeHandle chain) {
  kernel_.faults.note("CertFreeCertificateChain");
  const Guard guard(kernel_.mutex);
  const auto object = chain != nullptr ? kernel_.take<ChainObject>(chain, "CertFreeCertificateChain") : nullptr;
  if (object != nullptr) {
    std::for_each(object->certificates.begin(), object->certificates.end(), [&](auto handle) { drop(handle); });
  }
}

Result<std::span<const std::byte>> Certificates::CertFindExtension(const std::string& oid, NativeHandle certificate) {
  const auto work = [&](CertificateObject& object) -> Result<std::span<const std::byte>> {
    const bool found = oid == "2.5.29.31" && !object.extension.empty();
    return {found, found ? std::span<const std::byte>(object.extension) : std::span<const std::byte>(), 0};
  };
  return callOn<CertificateObject>("CertFindExtension", certificate, work);
}

Result<std::optional<std::vector<platform::DistributionPoint>>> Certificates::CryptDecodeObjectEx(
    std::uint32_t encoding, std::span<const std::byte> encoded) {
  return kernel_.call("CryptDecodeObjectEx", [&]() -> Result<Points> {
    const auto found = extensions_.find(textOf(encoded));
    if (found == extensions_.end() || encoding != platform::kEncodingX509Pkcs7) {
      return Failure{kBadTag};
    }
    return {true, found->second, 0};
  });
}

std::uint32_t Certificates::CertGetNameStringW(NativeHandle certificate, std::uint32_t type,
                                               std::span<wchar_t> buffer) {
  const auto name = callOn<CertificateObject>("CertGetNameStringW", certificate, [&](CertificateObject& object) {
    std::wstring text = L"CN=";
    for (const char character : object.about.der) {
      text += static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
    return Result<std::wstring>{true, type == platform::kNameRdn ? text : L"", 0};
  });
  if (buffer.empty()) {
    return static_cast<std::uint32_t>(name.value.size() + 1);
  }
  const std::wstring text = name.value.substr(0, buffer.size() - 1);  // without a name: empty, as the platform
  *std::copy(text.begin(), text.end(), buffer.begin()) = L'\0';
  return static_cast<std::uint32_t>(text.size() + 1);
}

}  // namespace sim
