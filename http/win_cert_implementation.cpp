#include "http/win_cert_implementation.h"

#include <string_view>

#include "core/log.h"
#include "platform/certificates.h"
#include "upload/digest/base64.h"
#include "upload/digest/hash_generator.h"

namespace {

std::string_view derOf(platform::NativeHandle certificate) {
  if (certificate == nullptr) {
    return {};
  }
  const auto* const context = static_cast<const platform::CertificateContext*>(certificate);
  return {reinterpret_cast<const char*>(context->encoded), context->encodedLength};
}

}  // namespace

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
