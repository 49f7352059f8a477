#include "core/base/memory_guard.h"
#include "core/format/error_text.h"
#include "core/log/log.h"
#include "http/trust/win_cert_implementation.h"
#include "platform/platform.h"
#include "platform/winhttp.h"

// Whether a chain satisfies the platform's policy for TLS servers.

bool WinCertImplementation::VerifyCertChain(platform::NativeHandle chain, std::uint32_t& status, bool allowUnknownCa,
                                            bool ignoreName, const std::wstring& serverName) {
  status = 0;
  if (chain == nullptr) {
    return false;
  }
  const auto answer = CORE::guardMemory([&] {
    const platform::SslPolicy policy{.flags = allowUnknownCa ? platform::kChainPolicyAllowUnknownCa : 0,
                                     .authType = platform::kAuthTypeServer,
                                     .checks = ignoreName ? platform::kSecurityFlagIgnoreCertCnInvalid : 0,
                                     .serverName = serverName};
    return platform::current().certificates.CertVerifyCertificateChainPolicy(platform::kChainPolicySsl, chain, policy);
  });
  if (!answer) {
    CORE::log(CORE::kError, L"WinCertImplementation::VerifyCertChain(): CertVerifyCertificateChainPolicy Error: %s",
              CORE::systemErrorText(answer.error));
    return false;
  }
  status = answer.value;
  return true;
}
