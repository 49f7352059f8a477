#include "http/trust/win_cert_implementation.h"

#include <algorithm>
#include <optional>

#include "core/base/memory_guard.h"
#include "core/base/unicode.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "platform/platform.h"
#include "upload/digest/base64.h"
#include "upload/digest/hash_generator.h"

namespace {

platform::Certificates& api() { return platform::current().certificates; }

std::string_view derOf(platform::NativeHandle certificate) {
  const auto encoded = api().certificate(certificate).encoded;
  return {reinterpret_cast<const char*>(encoded.data()), encoded.size()};
}

/// Decodes base64, with or without PEM's lines; nothing when the text is neither.
std::optional<std::vector<std::byte>> decodeBase64(std::string_view text) {
  const auto size = api().CryptStringToBinaryA(text, platform::kCryptStringBase64Any, {});
  if (!size) {
    CORE::log(CORE::kError,
              L"WinCertImplementation::ConvertPEMToCertCtx(): Unable to decode certificate (size). Error = %s",
              CORE::systemErrorText(size.error));
    return std::nullopt;
  }
  std::vector<std::byte> bytes(size.value);
  const auto written = api().CryptStringToBinaryA(text, platform::kCryptStringBase64Any, bytes);
  if (!written) {
    CORE::log(CORE::kError, L"WinCertImplementation::ConvertPEMToCertCtx(): Unable to decode certificate. Error = %s",
              CORE::systemErrorText(written.error));
    return std::nullopt;
  }
  bytes.resize(std::min<std::size_t>(written.value, bytes.size()));
  return bytes;
}

/// Returns the certificate's distribution points. None, with a line in the log, when it has none and when they cannot
/// be read.
std::vector<platform::DistributionPoint> distributionPoints(platform::NativeHandle certificate) {
  const auto extension = api().CertFindExtension(platform::kOidCrlDistributionPoints, certificate);
  if (!extension) {
    CORE::log(CORE::kDebug,
              L"WinCertImplementation::ExtractCrlUrlsFromCert(): Certificate does not have CRL distribution points.");
    return {};
  }
  auto decoded = api().CryptDecodeObjectEx(platform::kEncodingX509Pkcs7, extension.value);
  if (!decoded) {
    CORE::log(
        CORE::kError,
        L"WinCertImplementation::ExtractCrlUrlsFromCert(): CryptDecodeObjectEx failed to decode CRL distribution points: %s",
        CORE::systemErrorText(decoded.error));
    CORE::log(CORE::kError,
              L"WinCertImplementation::ExtractCrlUrlsFromCert(): Failed to decode CRL distribution points.");
    return {};
  }
  if (!decoded.value) {
    CORE::log(CORE::kError, L"WinCertImplementation::ExtractCrlUrlsFromCert(): CRL distribution points are null.");
    return {};
  }
  return std::move(*decoded.value);
}

std::vector<std::string> crlUrls(platform::NativeHandle certificate) {
  const auto view = api().certificate(certificate);
  if (!view.hasInfo) {
    CORE::log(CORE::kError, L"WinCertImplementation::ExtractCrlUrlsFromCert(): Certificate context is invalid.");
    return {};
  }
  if (view.extensions == 0) {
    CORE::log(CORE::kDebug, L"WinCertImplementation::ExtractCrlUrlsFromCert(): Certificate has no extensions.");
    return {};
  }
  std::vector<std::string> urls;
  for (const auto& point : distributionPoints(certificate)) {
    if (!point.hasFullName) {
      continue;
    }
    CORE::log(CORE::kDebug, L"WinCertImplementation::ExtractCrlUrlsFromCert(): cAltEntry=%d", point.names.size());
    for (const auto& name : point.names) {
      if (name.type == platform::kAltNameUrl) {
        CORE::log(CORE::kDebug, L"WinCertImplementation::ExtractCrlUrlsFromCert(): Found CRL URL: %s", name.url);
        urls.push_back(CORE::toUtf8Lossy(name.url));
      }
    }
  }
  return urls;
}

}  // namespace

platform::CertificateHandle WinCertImplementation::ConvertPEMToCertCtx(std::string_view text) {
  const auto bytes = CORE::guardMemory([&] { return decodeBase64(text); });
  if (!bytes) {
    return {};
  }
  auto certificate = api().CertCreateCertificateContext(platform::kEncodingX509Pkcs7, *bytes);
  if (!certificate) {
    CORE::log(CORE::kError,
              L"WinCertImplementation::ConvertPEMToCertCtx(): CertCreateCertificateContext failed. Error = %s",
              CORE::systemErrorText(certificate.error));
  }
  return std::move(certificate.value);
}

std::vector<platform::CertificateHandle> WinCertImplementation::ExtractCertificatesFromChain(
    platform::NativeHandle chain, bool /*asLive*/) {
  if (chain == nullptr) {
    CORE::log(CORE::kError,
              L"WinCertImplementation::ExtractCertificatesFromChain(): Invalid certificate chain context provided.");
    return {};
  }
  return CORE::guardMemory([&]() -> std::vector<platform::CertificateHandle> {
    const auto view = api().chain(chain);
    if (view.simpleChains == 0) {
      CORE::log(CORE::kError,
                L"WinCertImplementation::ExtractCertificatesFromChain(): Certificate chain context has no chains.");
      return {};
    }
    std::vector<platform::CertificateHandle> certificates;
    for (const platform::NativeHandle element : view.certificates) {
      auto copy = api().CertDuplicateCertificateContext(element);
      if (!copy) {  // all or none: a comparison of chains must not miss a certificate
        CORE::log(CORE::kError,
                  L"WinCertImplementation::ExtractCertificatesFromChain(): CertDuplicateCertificateContext failed: %s",
                  CORE::systemErrorText(copy.error));
        return {};
      }
      certificates.push_back(std::move(copy.value));
    }
    return certificates;
  });
}

std::vector<std::string> WinCertImplementation::ExtractCrlUrlsFromCert(platform::NativeHandle certificate) {
  return CORE::guardMemory([&] { return crlUrls(certificate); });
}

std::vector<WinCertImplementation::CertificateUrls> WinCertImplementation::ExtractCrlUrlsFromChain(
    platform::NativeHandle chain) {
  if (chain == nullptr) {
    CORE::log(CORE::kError, L"WinCertImplementation::ExtractCrlUrlsFromChain(): Certificate chain context is invalid.");
    return {};
  }
  return CORE::guardMemory([&] {
    std::vector<CertificateUrls> found;
    for (const platform::NativeHandle certificate : api().chain(chain).certificates) {
      found.push_back({certificate, crlUrls(certificate)});
    }
    return found;
  });
}

std::vector<std::byte> WinCertImplementation::GetThumbprintBinary(platform::NativeHandle certificate) {
  HashGenerator generator;
  generator.SetAlgorithm(HashAlgorithm::kSha256, false);
  std::vector<std::byte> digest;
  if (certificate == nullptr || !generator.GenerateHash(derOf(certificate), {}, digest)) {
    CORE::log(
        CORE::kWarn,
        L"WinCertImplementation::GetThumbprintBinary::<lambda_1>::operator ()(): GenerateHash failed.");  // kept: name
    digest.clear();
  }
  return digest;
}

std::string WinCertImplementation::GetThumbprint(platform::NativeHandle certificate) {
  std::string text;
  HashGenerator::FormatHash(GetThumbprintBinary(certificate), HashOutputFormat::HexUpperColon, text);
  return text;
}

std::vector<std::string> WinCertImplementation::GetThumbprints(
    const std::vector<platform::NativeHandle>& certificates) {
  std::vector<std::string> thumbprints;
  for (const platform::NativeHandle certificate : certificates) {
    std::string thumbprint = GetThumbprint(certificate);
    if (thumbprint.empty()) {
      std::string text;
      base64Encode(derOf(certificate), text);
      CORE::log(CORE::kError, L"WinCertImplementation::GetThumbprints(): Unable to generate hash for certificate:\n%S",
                text);
      continue;
    }
    thumbprints.push_back(std::move(thumbprint));
  }
  return thumbprints;
}
